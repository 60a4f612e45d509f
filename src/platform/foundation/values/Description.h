#pragma once

#include "platform/foundation/values/Value.h"

#include <string>
#include <string_view>

namespace qv {

/// The text that `%@` shows for a value; "(null)" for a null pointer. Containers span lines.
/// Dictionaries and user information keep the order of their pairs. A string is given whole; a
/// value nested deeper than 512, and any other text after 1 MiB, is cut with "...".
[[nodiscard]] std::string description(const Value* value);
[[nodiscard]] inline std::string description(const Value& value) { return description(&value); }
/// The description, cut after `most` bytes with "...", a string too.
[[nodiscard]] std::string description(const Value& value, std::size_t most);
/// A text between double quotes, as it stands in a container: with \", \\, \n, and \Uxxxx for
/// what is not printable ASCII.
[[nodiscard]] std::string quotedText(std::string_view text);

} // namespace qv
