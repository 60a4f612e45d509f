#include "foundation_ext/QVDateTools.h"

#include "foundation_ext/IntervalWords.h"
#include "platform/foundation/text/TimestampParser.h"
#include "platform/foundation/text/UTF16.h"
#include "platform/system/ClassRegistry.h"

#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

namespace qv {

namespace {

struct Unit {
    double seconds;
    std::string_view singular;
    std::string_view plural;
};

constexpr std::array kUnits = {
    Unit{31'536'000, "year", "years"}, Unit{86'400, "day", "days"},  Unit{3'600, "hour", "hours"},
    Unit{60, "minute", "minutes"},     Unit{1, "second", "seconds"},
};
constexpr std::size_t kHours = 2;
constexpr std::size_t kSeconds = 4;

std::int64_t wholeNumber(double number) {
    constexpr double kLimit = 9223372036854775808.0; // 2^63
    if (std::isnan(number)) {
        return 0;
    }
    if (number >= kLimit) {
        return std::numeric_limits<std::int64_t>::max();
    }
    return number < -kLimit ? std::numeric_limits<std::int64_t>::min()
                            : static_cast<std::int64_t>(std::floor(number));
}

void split(double rest, const std::array<std::int64_t*, kUnits.size()>& values) {
    for (std::size_t unit = 0; unit < kUnits.size(); ++unit) {
        if (values.at(unit) != nullptr && unit != kHours) {
            *values.at(unit) = 0;
        }
    }
    for (std::size_t unit = 0; unit < kSeconds; ++unit) {
        const double length = kUnits.at(unit).seconds;
        if (values.at(unit) != nullptr && rest >= length) {
            *values.at(unit) = wholeNumber(rest / length);
            rest -= static_cast<double>(*values.at(unit)) * length;
        }
    }
    if (values[kSeconds] != nullptr) {
        *values[kSeconds] = wholeNumber(rest);
    }
}

std::optional<Date> parsed(TimestampParser& parser, std::optional<std::string_view> string) {
    return string ? parser.dateFromString(utf16FromUTF8(*string)) : std::nullopt;
}

// The place of the zone's offset, as far as its sign tells; the first ten characters are the date
// with hyphens of its own.
std::size_t signOfOffset(std::u16string_view text) {
    const std::size_t plus = text.find(u'+');
    return plus != std::u16string_view::npos ? plus : text.find(u'-', 10);
}

} // namespace

void QVDateTools::splitTimeInterval(TimeInterval interval, std::int64_t* inYears,
                                    std::int64_t* days, std::int64_t* hours, std::int64_t* minutes,
                                    std::int64_t* seconds) {
    split(interval, {inYears, days, hours, minutes, seconds});
}

std::string intervalInWords(double interval, const IntervalUnits& units, bool omitUnused,
                            const LocalizedStrings& names) {
    std::array<std::int64_t, kUnits.size()> values{};
    std::array<std::int64_t*, kUnits.size()> wanted{};
    for (std::size_t unit = 0; unit < kUnits.size(); ++unit) {
        wanted.at(unit) = units.at(unit) ? &values.at(unit) : nullptr;
    }
    split(interval, wanted);
    const bool omits =
        omitUnused && std::ranges::any_of(values, [](std::int64_t value) { return value != 0; });
    std::string words;
    for (std::size_t unit = 0; unit < kUnits.size(); ++unit) {
        const std::int64_t value = values.at(unit);
        if (!units.at(unit) || (value == 0 && omits)) {
            continue;
        }
        const Unit& name = kUnits.at(unit);
        words += fmt::format("{}{} {}", words.empty() ? "" : " ", value,
                             names.localizedString(value == 1 ? name.singular : name.plural));
    }
    return words;
}

std::string QVDateTools::stringFromTimeInterval(TimeInterval interval, bool withYears, bool days,
                                                bool hours, bool minutes, bool seconds,
                                                bool omitUnused) {
    return intervalInWords(interval, {withYears, days, hours, minutes, seconds}, omitUnused,
                           LocalizedStrings::ofMainBundle());
}

std::string QVDateTools::stringFromTimeInterval(TimeInterval interval, bool withYears, bool days,
                                                bool hours, bool minutes, bool seconds) {
    return stringFromTimeInterval(interval, withYears, days, hours, minutes, seconds, false);
}

std::optional<std::string>
QVDateTools::localizedStringFormattedWithDateStyle(Date receiver, DateFormatterStyle dateStyle,
                                                   DateFormatterStyle timeStyle) {
    return localizedDate(receiver, dateStyle, timeStyle);
}

std::optional<Date> QVDateTools::dateFromISO8601DateString(std::optional<std::string_view> string) {
    static TimestampParser parser(u"yyyy'-'MM'-'dd'T'HH':'mm':'ss.SSSZ");
    return parsed(parser, string);
}

std::optional<Date> QVDateTools::dateFromRFC3339DateString(std::optional<std::string_view> string) {
    static TimestampParser parser(u"yyyy'-'MM'-'dd'T'HH':'mm':'ssZZZ");
    if (!string) {
        return std::nullopt;
    }
    // The pattern knows offsets without a colon.
    std::u16string text = utf16FromUTF8(*string);
    const std::size_t sign = signOfOffset(text);
    if (sign != std::u16string::npos) {
        const auto colons =
            std::remove(text.begin() + static_cast<std::ptrdiff_t>(sign), text.end(), u':');
        text.erase(colons, text.end());
    }
    return parser.dateFromString(text);
}

QV_REGISTER_CATEGORY(
    NSDate, NSObject, QVDateTools,
    QV_CLASS_METHOD(splitTimeInterval, "splitTimeInterval:inYears:days:hours:minutes:seconds:"),
    QV_CLASS_METHOD_AS(
        "stringFromTimeInterval:withYears:days:hours:minutes:seconds:",
        requires { Self::stringFromTimeInterval(0, true, true, true, true, true); }),
    QV_CLASS_METHOD_AS(
        "stringFromTimeInterval:withYears:days:hours:minutes:seconds:omitUnused:",
        requires { Self::stringFromTimeInterval(0, true, true, true, true, true, true); }),
    QV_RECEIVER_METHOD(localizedStringFormattedWithDateStyle,
                       "localizedStringFormattedWithDateStyle:timeStyle:"),
    QV_CLASS_METHOD(dateFromISO8601DateString, "dateFromISO8601DateString:"),
    QV_CLASS_METHOD(dateFromRFC3339DateString, "dateFromRFC3339DateString:"));

} // namespace qv
