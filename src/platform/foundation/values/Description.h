#pragma once

#include "platform/foundation/values/Value.h"

#include <string>

namespace qv {

/// The text that `%@` shows for a value; "(null)" for a null pointer. Containers span lines.
/// Trees deeper than 512 are cut with "...".
[[nodiscard]] std::string description(const Value* value);
[[nodiscard]] inline std::string description(const Value& value) { return description(&value); }

} // namespace qv
