#pragma once

#include "platform/foundation/files/item/ItemPlace.h"

namespace qv {

/// Renames an item within a file system. 0 or an errno: EEXIST when something is there. Never
/// replaces anything, but where the file system cannot promise that, something that was made this
/// very moment.
[[nodiscard]] int renameItem(const ItemPlace& from, const ItemPlace& to);

} // namespace qv
