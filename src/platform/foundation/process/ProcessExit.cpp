#include "platform/foundation/process/ProcessExit.h"

#include "platform/foundation/files/UniqueFd.h"

#include <cerrno>
#include <poll.h>
#include <unistd.h>

extern "C" { // the header of glibc 2.36 has no C++ linkage
#include <sys/pidfd.h>
}

namespace qv {

void waitForExitOfProcess(pid_t process) {
    const UniqueFd pidfd(process == ::getpid() ? -1 : ::pidfd_open(process, 0));
    pollfd entry{pidfd.get(), POLLIN, 0};
    while (pidfd && ::poll(&entry, 1, -1) < 0 && errno == EINTR) {
    }
}

} // namespace qv
