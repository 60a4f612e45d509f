#pragma once

#include "platform/foundation/values/Value.h"

#include <tl/expected.hpp>

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace qv::plist {

/// The reason why the content of an element is refused: the message, and the place in the content.
struct ContentFault {
    std::string wording; ///< with "{line}", as textRefusal takes it
    std::size_t index = 0;
};

/// Parses a decimal number, or a hexadecimal one with 0x; from -2^63 to 2^64-1; white space only
/// before it.
[[nodiscard]] tl::expected<Value, ContentFault> parseInteger(std::string_view content);

/// A decimal floating-point number, `nan`, `inf` or `infinity`; nothing when it is none.
[[nodiscard]] std::optional<double> parseReal(std::string_view content);
[[nodiscard]] std::string realText(double value);

/// Parses `[-]YYYY-MM-DDTHH:MM:SSZ`; fields out of range roll over. Nothing when it has another
/// form.
[[nodiscard]] std::optional<Date> parseDate(std::string_view content);
/// Writes whole seconds, rounded down; nothing outside the years 0 to 9999.
[[nodiscard]] std::optional<std::string> dateText(Date date);

} // namespace qv::plist
