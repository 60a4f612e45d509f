#include "platform/security/guest/ProcessFileSystem.h"

#include "platform/foundation/os/ProcessIdentity.h"

#include <cerrno>
#include <fcntl.h>
#include <limits>
#include <poll.h>
#include <sys/sysmacros.h>
#include <sys/vfs.h>
#include <unistd.h>
#include <utility>

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

template <typename Call> tl::expected<Descriptor, int> checkedDescriptor(Call call) {
    return checked(call).map([](auto fd) { return Descriptor(static_cast<int>(fd)); });
}

} // namespace

ProcessFileSystem::Result<Descriptor> KernelProcessFileSystem::openProcess(pid_t pid) {
    Descriptor pidfd = openPidfd(pid);
    return pidfd ? Result<Descriptor>(std::move(pidfd)) : tl::unexpected(errno);
}

ProcessFileSystem::Result<Descriptor>
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

ProcessFileSystem::Result<FileOnMount> KernelProcessFileSystem::fileAt(int directory,
                                                                       const std::string& path) {
    constexpr unsigned kWanted = STATX_BASIC_STATS | STATX_MNT_ID;
    constexpr int kFlags = AT_STATX_DONT_SYNC | AT_EMPTY_PATH | AT_NO_AUTOMOUNT;
    struct statx info{};
    return checked([&] { return ::statx(directory, path.c_str(), kFlags, kWanted, &info); })
        .and_then([&](int) -> Result<FileOnMount> {
            if ((info.stx_mask & kWanted) != kWanted) {
                return tl::unexpected(ENOTSUP);
            }
            FileOnMount file{.mount = info.stx_mnt_id};
            file.status.st_dev = ::makedev(info.stx_dev_major, info.stx_dev_minor);
            file.status.st_ino = info.stx_ino;
            file.status.st_mode = info.stx_mode;
            file.status.st_nlink = info.stx_nlink;
            file.status.st_uid = info.stx_uid;
            file.status.st_gid = info.stx_gid;
            file.status.st_size = static_cast<off_t>(info.stx_size);
            return file;
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
