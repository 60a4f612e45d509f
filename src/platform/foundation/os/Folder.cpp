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
