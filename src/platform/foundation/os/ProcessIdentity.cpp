#include "platform/foundation/os/ProcessIdentity.h"

#include <fmt/core.h>

#include <cerrno>
#include <fcntl.h>
#include <poll.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace qv {

Descriptor openPidfd(pid_t pid) noexcept {
    // The C library's own function has no C++ linkage in the headers of Debian 12.
    return Descriptor(static_cast<int>(::syscall(SYS_pidfd_open, pid, 0U)));
}

bool hasEnded(int pidfd) noexcept {
    if (pidfd < 0) { // poll ignores such an entry, as if the process lived
        return true;
    }
    pollfd entry{.fd = pidfd, .events = POLLIN, .revents = 0};
    int ready = 0;
    do {
        ready = ::poll(&entry, 1, 0);
    } while (ready < 0 && errno == EINTR);
    return ready != 0;
}

tl::expected<ProcessIdentity::Shared, int> ProcessIdentity::ofPID(pid_t pid) {
    Descriptor pidfd = openPidfd(pid);
    if (!pidfd) {
        return tl::unexpected(errno);
    }
    return std::make_shared<const ProcessIdentity>(pid, std::move(pidfd));
}

ProcessIdentity::Shared ProcessIdentity::ofThisProcess() {
    return std::make_shared<const ProcessIdentity>(
        ::getpid(), openPidfd(::getpid()),
        PeerCredentials{.user = ::geteuid(), .group = ::getegid()});
}

bool ProcessIdentity::hasEnded() const noexcept { return qv::hasEnded(pidfd_.get()); }

tl::expected<Descriptor, int> ProcessIdentity::openFolder() const {
    Descriptor folder(
        ::open(fmt::format("/proc/{}", pid_).c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!folder) {
        return tl::unexpected(errno == ENOENT ? ESRCH : errno);
    }
    // The process is alive after its folder was opened, so its PID had not been reused before.
    if (hasEnded()) {
        return tl::unexpected(ESRCH);
    }
    return folder;
}

} // namespace qv
