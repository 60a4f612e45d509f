#include "platform/foundation/values/CalendarTime.h"

#include <chrono>
#include <cmath>

namespace qv {

std::optional<CalendarTime> calendarTime(Date date) {
    using namespace std::chrono;
    constexpr double kLargest = 8e11; // well inside what year_month_day holds
    if (!(std::abs(date.secondsSinceReference) < kLargest)) {
        return std::nullopt;
    }
    const sys_seconds instant{seconds{
        static_cast<std::int64_t>(std::floor(date.secondsSinceReference) + Date::kReference)}};
    const sys_days midnight = floor<days>(instant);
    const year_month_day day{midnight};
    const hh_mm_ss time{instant - midnight};
    return CalendarTime{.year = static_cast<int>(day.year()),
                        .month = static_cast<unsigned>(day.month()),
                        .day = static_cast<unsigned>(day.day()),
                        .hour = static_cast<int>(time.hours().count()),
                        .minute = static_cast<int>(time.minutes().count()),
                        .second = static_cast<int>(time.seconds().count())};
}

} // namespace qv
