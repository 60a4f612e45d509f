// Arbitrary text as a timestamp of both forms: it is refused, or the date that it gives is written
// out as a timestamp that gives the same date again.

#include "foundation_ext/QVDateTools.h"

#include <fmt/core.h>

#include <chrono>
#include <cmath>
#include <cstdlib>
#include <string>

namespace {

constexpr std::int64_t kReferenceDate = 978307200000; // 2001-01-01 in milliseconds since 1970
// All calendars agree from here up to the year 9999 about the form of a date.
constexpr std::int64_t kFirst = -12212553600000; // 1583-01-01
constexpr std::int64_t kLast = 253402300799999;

void require(bool fact) {
    if (!fact) {
        std::abort();
    }
}

std::int64_t millisecondsOf(qv::Date date) {
    require(std::isfinite(date.secondsSinceReference));
    return std::llround(date.secondsSinceReference * 1000) + kReferenceDate;
}

std::string withoutZone(std::int64_t milliseconds, bool fraction) {
    using namespace std::chrono;
    const sys_time<std::chrono::milliseconds> moment{std::chrono::milliseconds(milliseconds)};
    const auto day = floor<days>(moment);
    const year_month_day date(day);
    const hh_mm_ss time(moment - day);
    std::string text =
        fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}", static_cast<int>(date.year()),
                    unsigned{date.month()}, unsigned{date.day()}, time.hours().count(),
                    time.minutes().count(), time.seconds().count());
    if (fraction) {
        text += fmt::format(".{:03}", time.subseconds().count());
    }
    return text;
}

template <typename Parse> void examine(std::string_view text, bool fraction, Parse parse) {
    const std::optional<qv::Date> date = parse(text);
    if (!date) {
        return;
    }
    const std::int64_t milliseconds = millisecondsOf(*date);
    if (milliseconds < kFirst || milliseconds > kLast) {
        return;
    }
    for (const char* zone : {"Z", "+0000", "-00:00"}) {
        const auto again = parse(withoutZone(milliseconds, fraction) + zone);
        require(again && millisecondsOf(*again) == milliseconds);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
    const std::string text(data, data + size);
    examine(text, true,
            [](std::string_view each) { return qv::QVDateTools::dateFromISO8601DateString(each); });
    examine(text, false,
            [](std::string_view each) { return qv::QVDateTools::dateFromRFC3339DateString(each); });
    return 0;
}
