#pragma once

#include "platform/foundation/plist/PropertyList.h"

#include <tl/expected.hpp>

#include <string_view>

namespace qv::plist {

/// Reads `bplist00`.
[[nodiscard]] tl::expected<Value, Error> readBinary(std::string_view data,
                                                    const PropertyListLimits& limits);

} // namespace qv::plist
