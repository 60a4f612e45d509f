#pragma once

#include "platform/foundation/values/Value.h"

#include <optional>

namespace qv {

/// A date in the Gregorian calendar and in UTC; a part of a second is cut off.
struct CalendarTime {
    int year = 0;
    unsigned month = 1; ///< 1 to 12
    unsigned day = 1;   ///< 1 to 31
    int hour = 0;
    int minute = 0;
    int second = 0;
};

/// Returns none for a date that is not a number, or is more than 25,000 years away.
[[nodiscard]] std::optional<CalendarTime> calendarTime(Date date);

} // namespace qv
