#include "platform/foundation/os/FileKey.h"

#include <cerrno>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>

namespace qv {

namespace {

std::int64_t nanoseconds(const timespec& time) {
    return std::int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

} // namespace

tl::expected<FileKey, int> FileKey::of(int fd) {
    struct stat info{};
    if (::fstat(fd, &info) != 0) {
        return tl::unexpected(errno);
    }
    long generation = 0; // stays 0 where the file system has no such number
    static_cast<void>(::ioctl(fd, FS_IOC_GETVERSION, &generation));
    return FileKey{.device = info.st_dev,
                   .inode = info.st_ino,
                   .generation = generation,
                   .size = info.st_size,
                   .modified = nanoseconds(info.st_mtim),
                   .changed = nanoseconds(info.st_ctim),
                   .owner = info.st_uid};
}

} // namespace qv
