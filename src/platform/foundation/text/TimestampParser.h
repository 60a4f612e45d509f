#pragma once

#include "platform/foundation/values/Value.h"

#include <memory>
#include <mutex>
#include <optional>
#include <string_view>

namespace qv {

/// Reads dates of one fixed pattern (Unicode TR 35) as machines write them: strictly, in English,
/// in GMT where the text names no zone of its own. May be used from several threads.
class TimestampParser {
public:
    explicit TimestampParser(std::u16string_view pattern);
    TimestampParser(const TimestampParser&) = delete;
    TimestampParser& operator=(const TimestampParser&) = delete;
    TimestampParser(TimestampParser&&) = delete;
    TimestampParser& operator=(TimestampParser&&) = delete;
    ~TimestampParser();

    /// Returns none when the text is of another form, not a date of the calendar, or longer than
    /// 256 units. Blanks may stand before and behind.
    [[nodiscard]] std::optional<Date> dateFromString(std::u16string_view text);

private:
    struct Formatter;
    std::unique_ptr<Formatter> formatter_; // null where it cannot be made: every text is refused
    std::mutex mutex_;                     // parsing changes the formatter
};

} // namespace qv
