#include "platform/foundation/os/RegularFile.h"

#include <fmt/core.h>

#include <cerrno>
#include <fcntl.h>
#include <linux/magic.h>
#include <sys/vfs.h>
#include <unistd.h>
#include <utility>

namespace qv {

namespace {

// The kernel's own files seem regular too, but reading them may take something away. Those of most
// of its file systems seem empty.
bool isPlainFile(int file) {
    struct stat info{};
    struct statfs system{};
    return ::fstat(file, &info) == 0 && S_ISREG(info.st_mode) && info.st_size > 0 &&
           ::fstatfs(file, &system) == 0 && system.f_type != SYSFS_MAGIC;
}

} // namespace

Descriptor openRegularFile(const std::string& path) {
    const Descriptor item(::open(path.c_str(), O_PATH | O_CLOEXEC));
    return item ? openRegularFile(item.get()) : Descriptor();
}

Descriptor openRegularFile(int item) {
    if (!isPlainFile(item)) {
        errno = EINVAL;
        return {};
    }
    return Descriptor(::open(fmt::format("/proc/self/fd/{}", item).c_str(),
                             O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
}

std::optional<std::string> contentOfRegularFile(int file, std::size_t most) {
    struct stat info{};
    if (::fstat(file, &info) != 0) {
        return std::nullopt;
    }
    if (!S_ISREG(info.st_mode) || std::cmp_greater(info.st_size, most)) {
        errno = S_ISREG(info.st_mode) ? EFBIG : EINVAL;
        return std::nullopt;
    }
    std::string content(static_cast<std::size_t>(info.st_size), '\0');
    std::size_t length = 0;
    while (length < content.size()) {
        const ssize_t count = ::read(file, content.data() + length, content.size() - length);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count < 0) {
            return std::nullopt;
        }
        if (count == 0) {
            break;
        }
        length += static_cast<std::size_t>(count);
    }
    content.resize(length);
    return content;
}

bool isProgramFile(const struct stat& info) noexcept {
    constexpr mode_t kAnybody = S_IXUSR | S_IXGRP | S_IXOTH;
    return S_ISREG(info.st_mode) && (info.st_mode & kAnybody) != 0;
}

} // namespace qv
