#include "platform/security/guest/ProcessFileSystem.h"

#include <cerrno>
#include <fcntl.h>
#include <limits>
#include <poll.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <sys/vfs.h>
#include <unistd.h>

namespace qv {

namespace {

/// Repeats a call that a signal interrupts; its value, or errno.
template <typename Call> auto checked(Call call) -> tl::expected<decltype(call()), int> {
    while (true) {
        const auto result = call();
        if (result >= 0) {
            return result;
        }
        if (errno != EINTR) {
            return tl::unexpected(errno);
        }
    }
}

template <typename Call> tl::expected<UniqueFd, int> checkedDescriptor(Call call) {
    return checked(call).map([](auto fd) { return UniqueFd(static_cast<int>(fd)); });
}

} // namespace

// The C library of Debian 12 has no wrapper that its C++ headers can be asked for portably.
ProcessFileSystem::Result<UniqueFd> KernelProcessFileSystem::openProcess(pid_t pid) {
    return checkedDescriptor([pid] { return ::syscall(SYS_pidfd_open, pid, 0U); });
}

ProcessFileSystem::Result<UniqueFd> KernelProcessFileSystem::duplicate(int fd) {
    return checkedDescriptor([fd] { return ::fcntl(fd, F_DUPFD_CLOEXEC, 0); });
}

ProcessFileSystem::Result<UniqueFd>
KernelProcessFileSystem::open(int directory, const std::string& path, int flags) {
    return checkedDescriptor(
        [&] { return ::openat(directory, path.c_str(), flags | O_CLOEXEC | O_NOCTTY); });
}

ProcessFileSystem::Result<struct stat> KernelProcessFileSystem::status(int fd) {
    struct stat info{};
    return checked([&] { return ::fstat(fd, &info); }).map([&](int) { return info; });
}

ProcessFileSystem::Result<struct stat> KernelProcessFileSystem::statusAt(int directory,
                                                                         const std::string& path) {
    struct stat info{};
    return checked([&] { return ::fstatat(directory, path.c_str(), &info, 0); }).map([&](int) {
        return info;
    });
}

ProcessFileSystem::Result<FileIdentity>
KernelProcessFileSystem::identityAt(int directory, const std::string& path) {
    constexpr unsigned kWanted = STATX_INO | STATX_MNT_ID;
    struct statx info{};
    return checked(
               [&] { return ::statx(directory, path.c_str(), AT_STATX_DONT_SYNC, kWanted, &info); })
        .and_then([&](int) -> Result<FileIdentity> {
            if ((info.stx_mask & kWanted) != kWanted) {
                return tl::unexpected(ENOTSUP);
            }
            return FileIdentity{.device = ::makedev(info.stx_dev_major, info.stx_dev_minor),
                                .inode = info.stx_ino,
                                .mount = info.stx_mnt_id};
        });
}

ProcessFileSystem::Result<std::uint64_t> KernelProcessFileSystem::fileSystemMagic(int fd) {
    struct statfs info{};
    return checked([&] { return ::fstatfs(fd, &info); }).map([&](int) {
        return static_cast<std::uint64_t>(info.f_type);
    });
}

ProcessFileSystem::Result<std::size_t> KernelProcessFileSystem::read(int fd, std::uint64_t offset,
                                                                     std::span<char> buffer) {
    if (offset > static_cast<std::uint64_t>(std::numeric_limits<off_t>::max())) {
        return tl::unexpected(EOVERFLOW);
    }
    return checked([&] {
               return ::pread(fd, buffer.data(), buffer.size(), static_cast<off_t>(offset));
           })
        .map([](ssize_t bytes) { return static_cast<std::size_t>(bytes); });
}

ProcessFileSystem::Result<bool> KernelProcessFileSystem::hasEnded(int pidfd) {
    if (pidfd < 0) { // poll would ignore it, which reads like a living process
        return tl::unexpected(EBADF);
    }
    pollfd entry{.fd = pidfd, .events = POLLIN, .revents = 0};
    const Result<int> ready = checked([&] { return ::poll(&entry, 1, 0); });
    if (!ready) {
        return tl::unexpected(ready.error());
    }
    if ((entry.revents & POLLNVAL) != 0) {
        return tl::unexpected(EBADF);
    }
    return *ready > 0;
}

} // namespace qv
