#include "platform/foundation/plist/XMLScalars.h"

#include "platform/foundation/plist/Refusal.h"
#include "platform/foundation/values/ASCII.h"
#include "platform/foundation/values/CalendarTime.h"

#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <limits>

namespace qv::plist {

namespace {

using Fault = tl::unexpected<ContentFault>;

std::size_t skipSpace(std::string_view text) {
    return static_cast<std::size_t>(std::ranges::find_if_not(text, isSpace) - text.begin());
}

// The value of a digit in the base; nothing for another character.
std::optional<unsigned> digitOf(char c, unsigned base) {
    if (isDigit(c)) {
        return static_cast<unsigned>(c - '0');
    }
    const char lower = static_cast<char>(static_cast<unsigned char>(c) | 0x20U);
    if (base == 16 && lower >= 'a' && lower <= 'f') {
        return static_cast<unsigned>(lower - 'a') + 10;
    }
    return std::nullopt;
}

Fault unknownDigit(std::string_view content, std::size_t index) {
    const char c = content[index];
    if (digitOf(c, 16)) {
        return Fault({"Hex digit in non-hex <integer> on line {line}", index});
    }
    const auto byte = static_cast<unsigned char>(c);
    const std::string shown = byte > 0x20 && byte < 0x7F ? std::string(1, c) : "?";
    return Fault({fmt::format("Unknown character '{}' ({:#x}) in <integer> on line {{line}}", shown,
                              unsigned{byte}),
                  index});
}

} // namespace

tl::expected<Value, ContentFault> parseInteger(std::string_view content) {
    std::size_t index = skipSpace(content);
    if (index == content.size()) {
        return Fault({"Encountered empty <integer> on line {line}", 0});
    }
    const bool negative = content[index] == '-';
    if (negative || content[index] == '+') {
        ++index;
    }
    unsigned base = 10;
    if (content.substr(index).starts_with("0x") || content.substr(index).starts_with("0X")) {
        base = 16;
        index += 2;
    }
    if (index == content.size()) {
        return Fault({"Incomplete <integer> on line {line}", index});
    }
    constexpr std::uint64_t kSmallest = std::uint64_t{1} << 63U;
    const std::uint64_t limit = negative ? kSmallest : std::numeric_limits<std::uint64_t>::max();
    std::uint64_t magnitude = 0;
    for (; index < content.size(); ++index) {
        const std::optional<unsigned> digit = digitOf(content[index], base);
        if (!digit) {
            return unknownDigit(content, index);
        }
        if (magnitude > (limit - *digit) / base) {
            return Fault({negative ? "Integer underflow in <integer> on line {line}"
                                   : "Integer overflow in <integer> on line {line}",
                          index});
        }
        magnitude = magnitude * base + *digit;
    }
    return negative ? Value::integer(static_cast<std::int64_t>(0 - magnitude))
                    : Value::unsignedInteger(magnitude);
}

namespace {

// Whether a number that no double holds is too large, rather than too small.
bool isLarge(std::string_view number) {
    const std::size_t mark = number.find_first_of("eE");
    const std::string_view mantissa = number.substr(0, mark);
    const std::size_t first = mantissa.find_first_of("123456789");
    const std::size_t point = std::min(mantissa.find('.'), mantissa.size());
    auto magnitude = static_cast<std::int64_t>(point) - static_cast<std::int64_t>(first);
    if (mark != std::string_view::npos) {
        std::string_view digits = number.substr(mark + 1);
        digits.remove_prefix(digits.starts_with('+') ? 1 : 0);
        std::int64_t exponent = 0;
        const auto result = std::from_chars(digits.data(), digits.data() + digits.size(), exponent);
        if (result.ec == std::errc::result_out_of_range) {
            return !digits.starts_with('-');
        }
        magnitude = std::clamp<std::int64_t>(exponent, -(1LL << 61), 1LL << 61) + magnitude;
    }
    return magnitude > 0;
}

std::optional<double> parseSpecial(std::string_view text) {
    std::string lower(text);
    std::ranges::transform(lower, lower.begin(), [](char c) {
        return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c;
    });
    if (lower == "nan") {
        return std::numeric_limits<double>::quiet_NaN();
    }
    if (lower == "inf" || lower == "infinity") {
        return std::numeric_limits<double>::infinity();
    }
    return std::nullopt;
}

} // namespace

std::optional<double> parseReal(std::string_view content) {
    content.remove_prefix(skipSpace(content));
    const bool negative = content.starts_with('-');
    if (negative || content.starts_with('+')) {
        content.remove_prefix(1);
    }
    if (content.empty()) {
        return std::nullopt;
    }
    double value = 0;
    if (!isDigit(content.front()) && content.front() != '.') {
        const std::optional<double> special = parseSpecial(content);
        if (!special) {
            return std::nullopt;
        }
        value = *special;
    } else {
        const char* end = content.data() + content.size();
        // NOLINTNEXTLINE(bugprone-suspicious-stringview-data-usage): its end is given
        const auto [stop, fault] = std::from_chars(content.data(), end, value);
        if (stop != end || fault == std::errc::invalid_argument) {
            return std::nullopt;
        }
        if (fault == std::errc::result_out_of_range) {
            value = isLarge(content) ? std::numeric_limits<double>::infinity() : 0.0;
        }
    }
    return negative ? -value : value;
}

std::string realText(double value) {
    if (std::isnan(value)) {
        return "nan";
    }
    return fmt::format("{}", value);
}

std::optional<Date> parseDate(std::string_view content) {
    using namespace std::chrono;
    const bool negative = content.starts_with('-');
    content.remove_prefix(negative ? 1 : 0);
    constexpr std::string_view kForm = "dddd-dd-ddTdd:dd:ddZ";
    const auto fits = [](char c, char form) { return form == 'd' ? isDigit(c) : c == form; };
    if (!std::ranges::equal(content, kForm, fits)) {
        return std::nullopt;
    }
    const auto field = [&](std::size_t index, std::size_t digits) {
        int value = 0;
        for (const char c : content.substr(index, digits)) {
            value = value * 10 + (c - '0');
        }
        return value;
    };
    const int monthIndex = field(5, 2) - 1; // -1 rolls back, 12 and more roll over
    const year_month month =
        year{negative ? -field(0, 4) : field(0, 4)} / January + months{monthIndex};
    const std::int64_t days =
        (sys_days{month / 1} + std::chrono::days{field(8, 2) - 1}).time_since_epoch().count();
    const std::int64_t seconds = days * 86400 + std::int64_t{field(11, 2)} * 3600 +
                                 std::int64_t{field(14, 2)} * 60 + field(17, 2);
    return Date{static_cast<double>(seconds) - Date::kReference};
}

std::optional<std::string> dateText(Date date) {
    const std::optional<CalendarTime> time = calendarTime(date);
    if (!time || time->year < 0 || time->year > 9999) {
        return std::nullopt;
    }
    return fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}Z", time->year, time->month, time->day,
                       time->hour, time->minute, time->second);
}

} // namespace qv::plist
