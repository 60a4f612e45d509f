#pragma once

#include "platform/foundation/files/item/HeldItem.h"
#include "platform/foundation/os/Descriptor.h"

#include <tl/expected.hpp>

#include <string>

namespace qv {

/// An item as its folder, held open, and its name in there: what the *at calls want. From here on
/// the item is not looked for by its path any more. A link is an item itself.
struct ItemPlace {
    Descriptor parent; ///< for lookups only (O_PATH)
    std::string name;
    std::string path; ///< for messages
};

/// Finds the folder of an absolute path, by the rule for links of files/HeldItem.h. The error is an
/// errno: EBUSY for the root, EINVAL when the path ends in "." or "..", ELOOP for a link that is
/// refused.
[[nodiscard]] tl::expected<ItemPlace, int> placeOf(const std::string& path);

/// Holds the item itself: see files/HeldItem.h.
[[nodiscard]] tl::expected<Descriptor, int> holdItem(const ItemPlace& item, LastLink last);

/// The path by which an item is reached without any link; its own where the kernel does not tell.
[[nodiscard]] std::string resolvedPath(const ItemPlace& item);

/// An item beside another one.
[[nodiscard]] tl::expected<ItemPlace, int> placeBeside(const ItemPlace& item,
                                                       const std::string& name);

/// Whether a folder is another one or lies below it.
[[nodiscard]] bool isInside(int folder, int outer);

} // namespace qv
