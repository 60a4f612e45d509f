#include "platform/foundation/process/state/ProcessExit.h"

#include "platform/foundation/os/ProcessIdentity.h"

#include <cerrno>
#include <chrono>
#include <poll.h>
#include <thread>
#include <unistd.h>

namespace qv {

void waitForExitOfProcess(pid_t process) {
    if (process == ::getpid()) {
        return;
    }
    constexpr std::chrono::milliseconds kUntilThereIsRoom{100};
    Descriptor pidfd = openPidfd(process);
    while (!pidfd && (errno == EMFILE || errno == ENFILE || errno == ENOMEM)) {
        // A shortage of descriptors or memory does not mean its end.
        std::this_thread::sleep_for(kUntilThereIsRoom);
        pidfd = openPidfd(process);
    }
    pollfd entry{pidfd.get(), POLLIN, 0};
    while (pidfd && ::poll(&entry, 1, -1) < 0 && (errno == EINTR || errno == ENOMEM)) {
    }
}

} // namespace qv
