#pragma once

#include "platform/foundation/text/DateText.h"
#include "platform/foundation/values/Value.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace qv {

class LocalizedStrings;

/// Small services for dates and intervals. An interval is in seconds; a year has 365 days of 86,400
/// seconds, and there are no months, weeks and leap years. All may be called from several threads.
namespace QVDateTools {

using TimeInterval = double;

/// Splits an interval into whole units. A unit without a pointer is not taken out, its share goes
/// to the next smaller one; the rest of the seconds is rounded down. A negative interval goes to
/// the seconds as a whole. All units given are set, but for the hours: they stay as they were when
/// less than an hour is left for them. A number beyond 64 bits is clamped, one that is not a number
/// is 0.
void splitTimeInterval(TimeInterval interval, std::int64_t* inYears, std::int64_t* days,
                       std::int64_t* hours, std::int64_t* minutes, std::int64_t* seconds);

/// The interval in words, "1 day 3 hours 0 minutes": the units that are asked for, with 0 in the
/// plural. With `omitUnused`, units of 0 are left out unless all are 0. The names of the units are
/// those of the table "Localizable" of this installation's resources, English where it has none.
[[nodiscard]] std::string stringFromTimeInterval(TimeInterval interval, bool withYears, bool days,
                                                 bool hours, bool minutes, bool seconds,
                                                 bool omitUnused);
[[nodiscard]] std::string stringFromTimeInterval(TimeInterval interval, bool withYears, bool days,
                                                 bool hours, bool minutes, bool seconds);

/// The date for people, in their locale and time zone; none for a date that is not a number. The
/// short date is 2012-05-01 in every locale, so that it can be part of a file name.
[[nodiscard]] std::optional<std::string>
localizedStringFormattedWithDateStyle(Date receiver, DateFormatterStyle dateStyle,
                                      DateFormatterStyle timeStyle);

// Timestamps of machines, GMT where their zone does not say otherwise. Strictly of the pattern: no
// month 13, no 60th second; blanks may stand before and behind. A zone is +hhmm, +hh:mm, +hh, Z,
// UTC or GMT. None for all else.

/// yyyy-MM-ddTHH:mm:ss.SSSZ, any number of digits of the fraction, cut to milliseconds.
[[nodiscard]] std::optional<Date> dateFromISO8601DateString(std::optional<std::string_view> string);
/// yyyy-MM-ddTHH:mm:ssZZZ, without a fraction. The offset's colons are taken out before it is read.
[[nodiscard]] std::optional<Date> dateFromRFC3339DateString(std::optional<std::string_view> string);

} // namespace QVDateTools
} // namespace qv
