#include "platform/foundation/os/Folder.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace qv {

std::optional<Identity> identityOf(int fd) {
    struct stat info{};
    if (::fstat(fd, &info) != 0) {
        return std::nullopt;
    }
    return Identity{info.st_dev, info.st_ino};
}

Descriptor openFolderIn(int parent, const char* name) {
    return Descriptor(::openat(parent, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
}

int syncOutcome(int result) noexcept {
    const bool cannot = errno == EINVAL || errno == EROFS || errno == ENOTSUP;
    return result == 0 || cannot ? 0 : errno;
}

int syncFolder(int folder) {
    const Descriptor readable(::openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    return readable ? syncOutcome(::fsync(readable.get())) : 0;
}

Descriptor openOrMakeFolderIn(int parent, const char* name, mode_t mode) {
    constexpr mode_t kOwnerOnly = 0700;
    const bool made = ::mkdirat(parent, name, kOwnerOnly) == 0;
    if (!made && errno != EEXIST) {
        return {};
    }
    Descriptor folder = openFolderIn(parent, name);
    if (folder && made) {
        const Descriptor above(::openat(folder.get(), "..", O_PATH | O_DIRECTORY | O_CLOEXEC));
        const int unsaved =
            !above || ::fchmod(folder.get(), mode) != 0 ? errno : syncFolder(above.get());
        if (unsaved != 0) {
            folder.reset();
            errno = unsaved;
        }
    }
    return folder;
}

void Folder::giveUp() {
    if (fd_) {
        identity_ = identityOf(fd_.get());
        fd_.reset();
    }
}

bool Folder::reopen(int parent, const char* name) {
    Descriptor fd = openFolderIn(parent, name);
    if (!fd) {
        return false;
    }
    if (!identity_ || identityOf(fd.get()) != identity_) {
        errno = ESTALE;
        return false;
    }
    fd_ = std::move(fd);
    return true;
}

} // namespace qv
