#include "platform/foundation/text/DateText.h"

#include "platform/foundation/text/PlatformDate.h"

#include <unicode/datefmt.h>
#include <unicode/locid.h>
#include <unicode/smpdtfmt.h>

#include <cmath>

namespace qv {

namespace {

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
    format->format(millisecondsOf(date), text);
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

} // namespace qv
