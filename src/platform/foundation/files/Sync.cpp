#include "platform/foundation/files/Sync.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace qv {

namespace {

int outcome(int result) {
    const bool cannot = errno == EINVAL || errno == EROFS || errno == ENOTSUP;
    return result == 0 || cannot ? 0 : errno;
}

} // namespace

int syncFolder(int folder) {
    const UniqueFd readable(::openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    return readable ? outcome(::fsync(readable.get())) : 0;
}

int syncItem(const ItemPlace& item) {
    struct stat info{};
    if (::fstatat(item.parent.get(), item.name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0) {
        return errno;
    }
    if (S_ISREG(info.st_mode) || S_ISDIR(info.st_mode)) {
        const UniqueFd fd(::openat(item.parent.get(), item.name.c_str(),
                                   O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
        if (!fd) {
            return errno;
        }
        const int result = S_ISDIR(info.st_mode) ? ::syncfs(fd.get()) : ::fsync(fd.get());
        if (const int failure = outcome(result)) {
            return failure;
        }
    }
    return syncFolder(item.parent.get());
}

} // namespace qv
