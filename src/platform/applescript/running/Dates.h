#pragma once

#include "platform/applescript/values/Terms.h"

#include <optional>
#include <string>
#include <string_view>

namespace qv::applescript {

// Dates are seconds since 1970 on the local clock, in the Gregorian calendar.

struct DateParts {
    std::int64_t year = 1970;
    std::int64_t month = 1; ///< from 1; a larger number than 12 counts on into the next years
    std::int64_t day = 1;
    std::int64_t time = 0; ///< seconds since midnight
};

inline constexpr double kFarthestDate = 3.0e11; ///< seconds either way, some 9,500 years

[[nodiscard]] DateParts partsOf(double date);
[[nodiscard]] double dateFrom(const DateParts& parts);
[[nodiscard]] Term monthOf(double date);
[[nodiscard]] Term weekdayOf(double date);
/// The number from 1 of a month or a weekday (Sunday is the first one); 0 of anything else.
[[nodiscard]] int numberOf(Term monthOrWeekday) noexcept;

[[nodiscard]] std::string dateText(double date);        ///< … at 7:00:00 PM
[[nodiscard]] std::string dateString(double date);      ///< Sunday, November 22, 2026
[[nodiscard]] std::string timeString(double date);      ///< 7:00:00 PM
[[nodiscard]] std::string shortDateString(double date); ///< 11/22/26

/// Reads the forms above, ISO 8601, `11/22/2026`, `22 November 2026`, and times with or without
/// seconds and AM or PM. A time alone is one of `today`. None for anything else.
[[nodiscard]] std::optional<double> dateFromText(std::string_view text, double today);

} // namespace qv::applescript
