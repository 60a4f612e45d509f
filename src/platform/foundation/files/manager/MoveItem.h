#pragma once

#include "platform/foundation/files/item/ItemPlace.h"
#include "platform/foundation/values/Error.h"

namespace qv {

/// Moves an item to a place where nothing is; errors are FileManager::moveItemAtURL()'s. Within a
/// file system it is renamed. To another one it is copied under a temporary name beside its
/// destination, synced, renamed, and only then removed where it was: whatever happens, one of the
/// two names stands for the whole item, and the new one never for less. An item that changed at the
/// source after it was copied stays there, as an error (EBUSY).
[[nodiscard]] Error moveItem(const ItemPlace& from, const ItemPlace& to);

} // namespace qv
