#pragma once

#include "platform/foundation/plist/PropertyList.h"

#include <tl/expected.hpp>

#include <string_view>

namespace qv::plist {

/// Reads an old-style list or a strings file (pairs without braces). `text`: valid UTF-8.
[[nodiscard]] tl::expected<Value, Error> readOldStyle(std::string_view text,
                                                      const PropertyListLimits& limits);

} // namespace qv::plist
