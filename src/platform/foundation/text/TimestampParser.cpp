#include "platform/foundation/text/TimestampParser.h"

#include "platform/foundation/text/PlatformDate.h"

#include <unicode/locid.h>
#include <unicode/smpdtfmt.h>
#include <unicode/timezone.h>
#include <unicode/uchar.h>

namespace qv {

namespace {

constexpr std::size_t kLongestTimestamp = 256;

} // namespace

struct TimestampParser::Formatter {
    icu::SimpleDateFormat format;
};

TimestampParser::TimestampParser(std::u16string_view pattern) {
    UErrorCode status = U_ZERO_ERROR;
    auto made = std::make_unique<Formatter>(Formatter{icu::SimpleDateFormat(
        icu::UnicodeString(pattern.data(), static_cast<std::int32_t>(pattern.size())),
        icu::Locale("en_US_POSIX"), status)});
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
    return dateOf(milliseconds);
}

} // namespace qv
