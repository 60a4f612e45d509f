#include "platform/foundation/files/item/RenameItem.h"

#include "platform/foundation/os/Folder.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <sys/stat.h>

namespace qv {

namespace {

bool exists(const ItemPlace& item) {
    struct stat info{};
    return ::fstatat(item.parent.get(), item.name.c_str(), &info, AT_SYMLINK_NOFOLLOW) == 0;
}

bool isMovedIntoItself(const ItemPlace& from, const ItemPlace& to) {
    const Descriptor folder = openFolderIn(from.parent.get(), from.name.c_str());
    return folder && isInside(to.parent.get(), folder.get());
}

} // namespace

int renameItem(const ItemPlace& from, const ItemPlace& to) {
    if (exists(to)) {
        return EEXIST;
    }
    const auto attempt = [&](unsigned flags) {
        return ::renameat2(from.parent.get(), from.name.c_str(), to.parent.get(), to.name.c_str(),
                           flags) == 0
                   ? 0
                   : errno;
    };
    const int failure = attempt(RENAME_NOREPLACE);
    return failure == EINVAL && !isMovedIntoItself(from, to) ? attempt(0) : failure;
}

} // namespace qv
