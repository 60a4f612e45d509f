#include "platform/foundation/files/manager/MoveItem.h"

#include "platform/foundation/files/item/FileErrors.h"
#include "platform/foundation/files/item/RenameItem.h"
#include "platform/foundation/files/item/Sync.h"
#include "platform/foundation/files/manager/CopyItem.h"
#include "platform/foundation/files/manager/RemoveItem.h"
#include "platform/foundation/os/Folder.h"
#include "platform/foundation/os/TemporaryName.h"

#include <cerrno>

namespace qv {

namespace {

constexpr std::string_view kMove = "Move";

Error moveError(const ItemPlace& from, const ItemPlace& to, int errorNumber) {
    return fileError({errorNumber, FileAccess::write, from.path, to.path}, kMove);
}

// The error of a move by copying, around that of the part which failed.
Error moveError(const ItemPlace& from, const ItemPlace& to, const Error& cause) {
    return {error_domain::kCocoa, cause.code(),
            Value::dictionary({{error_key::kFilePath, pathText(from.path)},
                               {error_key::kDestinationFilePath, pathText(to.path)},
                               {error_key::kUserStringVariant, Value::string(kMove)},
                               {error_key::kUnderlyingError, Value::error(cause)}})};
}

Error moveAcross(const ItemPlace& from, const ItemPlace& to) {
    const tl::expected<ItemPlace, int> temporary = placeBeside(to, temporaryName());
    if (!temporary) {
        return moveError(from, to, temporary.error());
    }
    if (std::optional<FileFailure> failure = copyItem(from, *temporary, MountedBelow::refused)) {
        failure->destination.replace(0, temporary->path.size(), to.path);
        return moveError(from, to, fileError(*failure, "Copy"));
    }
    int failure = syncItem(*temporary);
    if (failure == 0) {
        failure = renameItem(*temporary, to);
    }
    if (failure != 0) {
        static_cast<void>(removeItem(*temporary));
        return moveError(from, to, failure);
    }
    if (const int unsynced = syncFolder(to.parent.get())) {
        return moveError(from, to, unsynced); // both are there, and nothing is lost
    }
    if (const std::optional<FileFailure> kept = removeCopiedItem(from, to)) {
        return moveError(from, to, fileError(*kept, "Remove"));
    }
    const int unsynced = syncFolder(from.parent.get());
    return unsynced == 0 ? Error() : moveError(from, to, unsynced);
}

} // namespace

Error moveItem(const ItemPlace& from, const ItemPlace& to) {
    const int failure = renameItem(from, to);
    if (failure == EXDEV) {
        return moveAcross(from, to);
    }
    if (failure != 0) {
        return moveError(from, to, failure);
    }
    int unsynced = syncFolder(to.parent.get());
    if (unsynced == 0 && identityOf(from.parent.get()) != identityOf(to.parent.get())) {
        unsynced = syncFolder(from.parent.get());
    }
    return unsynced == 0 ? Error() : moveError(from, to, unsynced);
}

} // namespace qv
