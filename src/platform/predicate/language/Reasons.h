#pragma once

#include "platform/foundation/values/Exception.h"
#include "platform/foundation/values/Value.h"

#include <string>
#include <string_view>

namespace qv::predicate {

// The words of the reasons that exceptions give.

/// At most 100 bytes of a text around one of them, "..." where it is cut, as valid UTF-8.
[[nodiscard]] std::string quoted(std::string_view text, std::size_t around = 0);

/// A value's description, shortened.
[[nodiscard]] std::string shown(const Value& value);

/// The kind and value: "a string (abc)", "an array".
[[nodiscard]] std::string kindAndValue(const Value& value);

[[noreturn]] void raiseInvalidArgument(std::string reason);

} // namespace qv::predicate
