#pragma once

#include "platform/foundation/values/Error.h"
#include "platform/foundation/values/Value.h"

#include <tl/expected.hpp>

#include <cstddef>
#include <string>

namespace qv::plist {

[[nodiscard]] tl::expected<std::string, Error> writeXML(const Value& root, std::size_t mostText);

} // namespace qv::plist
