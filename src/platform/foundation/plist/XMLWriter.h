#pragma once

#include "platform/foundation/values/Error.h"
#include "platform/foundation/values/Value.h"

#include <tl/expected.hpp>

#include <string>

namespace qv::plist {

[[nodiscard]] tl::expected<std::string, Error> writeXML(const Value& root);

} // namespace qv::plist
