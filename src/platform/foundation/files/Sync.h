#pragma once

#include "platform/foundation/files/ItemPlace.h"

namespace qv {

// What these have answered with 0 survives a power cut. Else they answer an errno. A file system
// that cannot sync a folder, or a folder that may not be read, is none.

/// The names in a folder.
[[nodiscard]] int syncFolder(int folder);
/// An item with its content, and its name. A folder takes all of its file system with it.
[[nodiscard]] int syncItem(const ItemPlace& item);

} // namespace qv
