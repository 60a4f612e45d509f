#pragma once

#include "platform/foundation/values/Value.h"

#include <cstdint>
#include <optional>
#include <string>

namespace qv {

/// The length in which a date or a time is written; the numbers are the platform's.
enum class DateFormatterStyle : std::uint8_t { none, shortStyle, medium, longStyle, full };

/// A date in the words of the current locale and in the local time zone. None for a date that is
/// not a number. The short date is 2012-05-01 in every locale, so that it can be part of a file
/// name.
[[nodiscard]] std::optional<std::string> localizedDate(Date date, DateFormatterStyle dateStyle,
                                                       DateFormatterStyle timeStyle);

/// The identifier of the user's locale, `de_DE`.
[[nodiscard]] std::string currentLocaleIdentifier();

} // namespace qv
