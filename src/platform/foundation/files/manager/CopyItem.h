#pragma once

#include "platform/foundation/files/item/FileErrors.h"
#include "platform/foundation/files/item/ItemPlace.h"
#include "platform/foundation/files/manager/FileMetadata.h"

#include <cstdint>
#include <optional>

namespace qv {

/// The treatment of a folder in the copied tree where something is mounted.
enum class MountedBelow : std::uint8_t {
    copied, ///< its content belongs to the tree
    refused ///< EBUSY: the tree is going to be removed, which a mount would not let happen
};

/// Copies an item to a place where nothing is, EEXIST otherwise. Kept are content with its holes,
/// mode, owner where permitted, dates, extended attributes and access lists, hard links inside the
/// tree; links, FIFOs, sockets and devices are copied as what they are. The first failure ends it,
/// and then what was made is removed. A folder cannot be copied into itself: EINVAL.
///
/// Folders of the copy are for their maker alone until they are complete.
[[nodiscard]] std::optional<FileFailure> copyItem(const ItemPlace& from, const ItemPlace& to,
                                                  MountedBelow mounted,
                                                  Privileges privileges = Privileges::kept);

} // namespace qv
