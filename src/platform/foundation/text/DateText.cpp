#include "platform/foundation/text/DateText.h"

#include "platform/foundation/text/UTF16.h"

#include <unicode/datefmt.h>
#include <unicode/locid.h>
#include <unicode/smpdtfmt.h>
#include <unicode/timezone.h>
#include <unicode/uchar.h>

#include <cmath>

namespace qv {

namespace {

constexpr double kReferenceDate = 978307200; // 2001-01-01 in seconds since 1970
constexpr std::size_t kLongestTimestamp = 256;
constexpr const char* kMachineLocale = "en_US_POSIX";

icu::DateFormat::EStyle libraryStyle(DateFormatterStyle style) {
    switch (style) {
    case DateFormatterStyle::shortStyle:
        return icu::DateFormat::kShort;
    case DateFormatterStyle::medium:
        return icu::DateFormat::kMedium;
    case DateFormatterStyle::longStyle:
        return icu::DateFormat::kLong;
    case DateFormatterStyle::full:
        return icu::DateFormat::kFull;
    default:
        return icu::DateFormat::kNone;
    }
}

std::optional<std::string> formatted(Date date, std::unique_ptr<icu::DateFormat> format) {
    if (!format) {
        return std::nullopt;
    }
    icu::UnicodeString text;
    format->format((date.secondsSinceReference + kReferenceDate) * 1000, text);
    std::string result;
    text.toUTF8String(result);
    return result;
}

std::optional<std::string> shortDate(Date date) {
    UErrorCode status = U_ZERO_ERROR;
    auto format =
        std::make_unique<icu::SimpleDateFormat>(u"yyyy-MM-dd", icu::Locale(kMachineLocale), status);
    return U_FAILURE(status) != 0 ? std::nullopt : formatted(date, std::move(format));
}

std::optional<std::string> inStyles(Date date, DateFormatterStyle dateStyle,
                                    DateFormatterStyle timeStyle) {
    return formatted(date, std::unique_ptr<icu::DateFormat>(icu::DateFormat::createDateTimeInstance(
                               libraryStyle(dateStyle), libraryStyle(timeStyle))));
}

} // namespace

std::optional<std::string> localizedDate(Date date, DateFormatterStyle dateStyle,
                                         DateFormatterStyle timeStyle) {
    if (!std::isfinite(date.secondsSinceReference)) {
        return std::nullopt;
    }
    if (dateStyle == DateFormatterStyle::none && timeStyle == DateFormatterStyle::none) {
        return "";
    }
    if (dateStyle != DateFormatterStyle::shortStyle) {
        return inStyles(date, dateStyle, timeStyle);
    }
    std::optional<std::string> text = shortDate(date);
    if (text && timeStyle != DateFormatterStyle::none) {
        const auto time = inStyles(date, DateFormatterStyle::none, timeStyle);
        return time ? std::optional(*text + " " + *time) : std::nullopt;
    }
    return text;
}

std::string currentLocaleIdentifier() { return icu::Locale::getDefault().getName(); }

struct TimestampParser::Formatter {
    icu::SimpleDateFormat format;
};

TimestampParser::TimestampParser(std::u16string_view pattern) {
    UErrorCode status = U_ZERO_ERROR;
    auto made = std::make_unique<Formatter>(Formatter{icu::SimpleDateFormat(
        icu::UnicodeString(pattern.data(), static_cast<std::int32_t>(pattern.size())),
        icu::Locale(kMachineLocale), status)});
    if (U_FAILURE(status) != 0) {
        return;
    }
    made->format.setTimeZone(*icu::TimeZone::getGMT());
    made->format.setLenient(false); // else 2012-13-01 is a day of 2013
    formatter_ = std::move(made);
}

TimestampParser::~TimestampParser() = default;

std::optional<Date> TimestampParser::dateFromString(std::u16string_view text) {
    if (!formatter_ || text.size() > kLongestTimestamp) {
        return std::nullopt;
    }
    const icu::UnicodeString string(text.data(), static_cast<std::int32_t>(text.size()));
    icu::ParsePosition position(0);
    const std::scoped_lock lock(mutex_);
    const UDate milliseconds = formatter_->format.parse(string, position);
    if (position.getErrorIndex() >= 0 || position.getIndex() == 0) {
        return std::nullopt;
    }
    for (std::int32_t index = position.getIndex(); index < string.length(); ++index) {
        if (u_isUWhiteSpace(string.charAt(index)) == 0) {
            return std::nullopt;
        }
    }
    return Date{milliseconds / 1000 - kReferenceDate};
}

} // namespace qv
