#include "platform/foundation/files/walk/HeldFolder.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>

namespace qv {

std::optional<Identity> identityOf(int fd) {
    struct stat info{};
    if (::fstat(fd, &info) != 0) {
        return std::nullopt;
    }
    return Identity{info.st_dev, info.st_ino};
}

UniqueFd openFolderIn(int parent, const char* name) {
    return UniqueFd(::openat(parent, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
}

void HeldFolder::giveUp() {
    if (fd_) {
        identity_ = identityOf(fd_.get());
        fd_.reset();
    }
}

bool HeldFolder::reopen(int parent, const char* name) {
    UniqueFd fd = openFolderIn(parent, name);
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
