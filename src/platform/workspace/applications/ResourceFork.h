#pragma once

#include "platform/foundation/values/Value.h"

#include <tl/expected.hpp>

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace qv {

/// Bytes that a resource fork can have; offsets in it have 24 bits.
inline constexpr std::size_t kLongestFork = std::size_t{1} << 24U;

/// The data of the first resource of a type (four bytes) in the bytes of a resource fork; none if
/// the fork holds none, or points outside of itself on the way there.
[[nodiscard]] std::optional<std::string_view> firstResource(std::string_view fork,
                                                            std::string_view type);
/// The resource fork in the bytes of an AppleDouble file (entry 2).
[[nodiscard]] std::optional<std::string_view> forkInAppleDouble(std::string_view file);

/// The property list that is the first resource of type 'plst' of an item, or what is
/// wrong with it, and where.
/// The resource fork is looked for in the item's extended attribute
/// `user.com.apple.ResourceFork`, in `NAME/..namedfork/rsrc`, and in the AppleDouble files `._NAME`
/// beside the item and in `__MACOSX` beside it; the first fork with such a resource counts. `root`:
/// as for copiedPath.
[[nodiscard]] tl::expected<std::optional<Value>, std::string>
resourceListOfItem(const std::string& path, const std::string& root = {});

} // namespace qv
