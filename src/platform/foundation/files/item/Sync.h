#pragma once

#include "platform/foundation/files/item/ItemPlace.h"

namespace qv {

/// Makes an item with its content, and its name, survive a power cut; for a folder it syncs the
/// whole file system. Returns 0 or the errno. A file system that cannot sync counts as synced.
[[nodiscard]] int syncItem(const ItemPlace& item);

} // namespace qv
