#include "platform/foundation/files/item/Sync.h"

#include "platform/foundation/os/Folder.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace qv {

int syncItem(const ItemPlace& item) {
    struct stat info{};
    if (::fstatat(item.parent.get(), item.name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0) {
        return errno;
    }
    if (S_ISREG(info.st_mode) || S_ISDIR(info.st_mode)) {
        const Descriptor fd(::openat(item.parent.get(), item.name.c_str(),
                                     O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
        if (!fd) {
            return errno;
        }
        const int result = S_ISDIR(info.st_mode) ? ::syncfs(fd.get()) : ::fsync(fd.get());
        if (const int failure = syncOutcome(result)) {
            return failure;
        }
    }
    return syncFolder(item.parent.get());
}

} // namespace qv
