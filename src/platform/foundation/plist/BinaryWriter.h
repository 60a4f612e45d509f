#pragma once

#include "platform/foundation/values/Error.h"
#include "platform/foundation/values/Value.h"

#include <tl/expected.hpp>

#include <string>

namespace qv::plist {

/// Equal strings, numbers, dates, data and UIDs are one object; a container is one object however
/// often the tree holds it. All sizes are the smallest that do.
[[nodiscard]] tl::expected<std::string, Error> writeBinary(const Value& root);

} // namespace qv::plist
