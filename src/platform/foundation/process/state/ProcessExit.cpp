#include "platform/foundation/process/state/ProcessExit.h"

#include "platform/foundation/os/Descriptor.h"

#include <cerrno>
#include <chrono>
#include <poll.h>
#include <thread>
#include <unistd.h>

extern "C" { // the header of glibc 2.36 has no C++ linkage
#include <sys/pidfd.h>
}

namespace qv {

void waitForExitOfProcess(pid_t process) {
    if (process == ::getpid()) {
        return;
    }
    constexpr std::chrono::milliseconds kUntilThereIsRoom{100};
    Descriptor pidfd(::pidfd_open(process, 0));
    while (!pidfd && (errno == EMFILE || errno == ENFILE || errno == ENOMEM)) {
        std::this_thread::sleep_for(kUntilThereIsRoom); // what is short is no sign of its end
        pidfd = Descriptor(::pidfd_open(process, 0));
    }
    pollfd entry{pidfd.get(), POLLIN, 0};
    while (pidfd && ::poll(&entry, 1, -1) < 0 && (errno == EINTR || errno == ENOMEM)) {
    }
}

} // namespace qv
