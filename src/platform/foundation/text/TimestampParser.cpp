#include "platform/foundation/text/TimestampParser.h"

#include "platform/foundation/text/PlatformDate.h"
#include "platform/foundation/text/UTF16.h"

#include <unicode/dcfmtsym.h>
#include <unicode/decimfmt.h>
#include <unicode/locid.h>
#include <unicode/smpdtfmt.h>
#include <unicode/timezone.h>
#include <unicode/uchar.h>

#include <string>

namespace qv {

namespace {

constexpr std::size_t kLongestTimestamp = 256;
constexpr std::size_t kMillisecondDigits = 3;

// The library's own would read "3e1" as 30.
std::unique_ptr<icu::NumberFormat> numbersWithoutExponent(UErrorCode& status) {
    auto numbers = std::make_unique<icu::DecimalFormat>(
        u"0", icu::DecimalFormatSymbols(icu::Locale(kMachineLocale), status), status);
    if (U_SUCCESS(status) != 0) {
        numbers->setParseNoExponent(static_cast<UBool>(true));
    }
    return numbers;
}

// Cuts a fraction of a second to milliseconds: the library raises ten to the power of its digits in
// 32 bits, and divides by that. None for a point without a digit behind it.
std::optional<std::u16string> withShortFraction(std::u16string_view text) {
    std::u16string result(text);
    const std::size_t point = text.find(u'.');
    if (point == std::u16string_view::npos) {
        return result;
    }
    std::size_t kept = point + 1;
    std::size_t end = point + 1;
    for (std::size_t count = 0, next = end; next < text.size(); end = next) {
        if (u_isdigit(static_cast<UChar32>(decodeUTF16(text, next))) == 0) {
            break;
        }
        if (++count <= kMillisecondDigits) {
            kept = next;
        }
    }
    if (kept == point + 1) {
        return std::nullopt;
    }
    return result.erase(kept, end - kept);
}

} // namespace

struct TimestampParser::Formatter {
    icu::SimpleDateFormat format;
};

TimestampParser::TimestampParser(std::u16string_view pattern) {
    UErrorCode status = U_ZERO_ERROR;
    auto made = std::make_unique<Formatter>(Formatter{icu::SimpleDateFormat(
        icu::UnicodeString(pattern.data(), static_cast<std::int32_t>(pattern.size())),
        icu::Locale(kMachineLocale), status)});
    std::unique_ptr<icu::NumberFormat> numbers = numbersWithoutExponent(status);
    if (U_FAILURE(status) != 0) {
        return;
    }
    made->format.adoptNumberFormat(numbers.release());
    made->format.setTimeZone(*icu::TimeZone::getGMT());
    made->format.setLenient(static_cast<UBool>(false)); // otherwise 2012-13-01 is a day of 2013
    formatter_ = std::move(made);
}

TimestampParser::~TimestampParser() = default;

std::optional<Date> TimestampParser::dateFromString(std::u16string_view text) {
    if (!formatter_ || text.size() > kLongestTimestamp) {
        return std::nullopt;
    }
    const std::optional<std::u16string> readable = withShortFraction(text);
    if (!readable) {
        return std::nullopt;
    }
    const icu::UnicodeString string(readable->data(), static_cast<std::int32_t>(readable->size()));
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
    return dateOf(milliseconds);
}

} // namespace qv
