#pragma once

#include "platform/foundation/files/item/FileErrors.h"
#include "platform/foundation/files/item/ItemPlace.h"

#include <optional>

namespace qv {

/// Removes an item, a folder with all that is in it, depth first. The first failure ends it; items
/// already removed stay removed. A file system mounted below is neither entered nor unmounted:
/// EBUSY. Items that somebody else removes meanwhile are not a failure.
[[nodiscard]] std::optional<FileFailure> removeItem(const ItemPlace& item);

/// The same for an item that we made, whatever the modes of its folders.
[[nodiscard]] std::optional<FileFailure> removeOwnItem(const ItemPlace& item);

/// The same for an item of which there is a copy, but only what the copy has too: an item that was
/// added or changed (size, modification date) since ends it with EBUSY.
[[nodiscard]] std::optional<FileFailure> removeCopiedItem(const ItemPlace& item,
                                                          const ItemPlace& copy);

} // namespace qv
