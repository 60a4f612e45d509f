#include "platform/foundation/values/Conversions.h"

#include "platform/foundation/values/ASCII.h"
#include "platform/foundation/values/Exception.h"

#include <algorithm>
#include <charconv>
#include <limits>

namespace qv {

namespace {

using Kind = Value::Kind;

bool isBlank(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

std::string_view withoutLeadingBlanks(std::string_view text) {
    while (!text.empty() && isBlank(text.front())) {
        text.remove_prefix(1);
    }
    return text;
}

[[noreturn]] void refuse(const Value& value, std::string_view selector) {
    raiseUnrecognizedSelector(className(value.kind()), selector);
}

// The 64 bits of a number; the test comes before the cast, which is undefined out of range.
std::int64_t realBits(double real, double lowest, double limit, std::int64_t outside) {
    return real >= lowest && real < limit ? static_cast<std::int64_t>(real) : outside;
}

std::int64_t numberBits(const Value& number) {
    constexpr double kLimit = 9223372036854775808.0; // 2^63
    switch (number.kind()) {
    case Kind::boolean:
        return number.asBoolean() ? 1 : 0;
    case Kind::integer:
        return number.asInteger();
    case Kind::unsignedInteger:
        return static_cast<std::int64_t>(number.asUnsignedInteger());
    default:
        return realBits(number.asReal(), -kLimit, kLimit, std::numeric_limits<std::int64_t>::min());
    }
}

std::int32_t numberInt(const Value& number) {
    constexpr double kLimit = 2147483648.0; // 2^31
    if (number.is(Kind::real)) {
        return static_cast<std::int32_t>(
            realBits(number.asReal(), -kLimit, kLimit, std::numeric_limits<std::int32_t>::min()));
    }
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(numberBits(number)));
}

std::int64_t wide(const Value* value, std::string_view selector) {
    if (value == nullptr) {
        return 0;
    }
    if (value->is(Kind::string)) {
        return integerValue(value->asString(), std::numeric_limits<std::int64_t>::min(),
                            std::numeric_limits<std::int64_t>::max());
    }
    if (!value->isNumber()) {
        refuse(*value, selector);
    }
    return numberBits(*value);
}

// Whether an unsigned decimal literal is above 1, told from its digits alone.
bool isAboveOne(std::string_view literal) {
    constexpr std::int64_t kFarOut = std::int64_t{1} << 40;
    const std::size_t e = std::min(literal.find_first_of("eE"), literal.size());
    const std::string_view mantissa = literal.substr(0, e);
    const std::int64_t exponent =
        e < literal.size() ? integerValue(literal.substr(e + 1), -kFarOut, kFarOut) : 0;
    const std::size_t point = std::min(mantissa.find('.'), mantissa.size());
    const std::size_t first = std::min(mantissa.find_first_of("123456789"), mantissa.size());
    return static_cast<std::int64_t>(point) - static_cast<std::int64_t>(first) + exponent > 0;
}

double doubleOf(std::string_view text) {
    text = withoutLeadingBlanks(text);
    const bool negative = text.starts_with('-');
    if (negative || text.starts_with('+')) {
        text.remove_prefix(1);
    }
    if (text.empty() || (text.front() != '.' && !isDigit(text.front()))) {
        return 0; // from_chars would read "inf" and "nan" here, and a second sign
    }
    double number = 0;
    const char* const begin = text.data();
    const auto [end, status] = std::from_chars(begin, begin + text.size(), number);
    if (status == std::errc::result_out_of_range) {
        const std::string_view literal = text.substr(0, static_cast<std::size_t>(end - begin));
        number = isAboveOne(literal) ? std::numeric_limits<double>::infinity() : 0;
    }
    return negative ? -number : number;
}

} // namespace

std::int64_t integerValue(std::string_view text, std::int64_t lowest,
                          std::int64_t highest) noexcept {
    text = withoutLeadingBlanks(text);
    const bool negative = text.starts_with('-');
    if (negative || text.starts_with('+')) {
        text.remove_prefix(1);
    }
    std::uint64_t magnitude = 0;
    const auto [end, status] = std::from_chars(text.data(), text.data() + text.size(), magnitude);
    if (status == std::errc::invalid_argument) {
        return 0;
    }
    const std::uint64_t limit = negative ? std::uint64_t{0} - static_cast<std::uint64_t>(lowest)
                                         : static_cast<std::uint64_t>(highest);
    if (status == std::errc::result_out_of_range || magnitude > limit) {
        return negative ? lowest : highest;
    }
    return static_cast<std::int64_t>(negative ? std::uint64_t{0} - magnitude : magnitude);
}

bool boolValue(std::string_view text) noexcept {
    text = withoutLeadingBlanks(text);
    if (text.empty()) {
        return false;
    }
    if (std::string_view("YyTt").find(text.front()) != std::string_view::npos) {
        return true;
    }
    if (text.front() == '-' || text.front() == '+') {
        text.remove_prefix(1);
    }
    const std::size_t first = text.find_first_not_of('0');
    return first != std::string_view::npos && text[first] >= '1' && text[first] <= '9';
}

std::int64_t integerValue(const Value* value) { return wide(value, "integerValue"); }
std::int64_t longLongValue(const Value* value) { return wide(value, "longLongValue"); }

std::int32_t intValue(const Value* value) {
    if (value == nullptr) {
        return 0;
    }
    if (value->is(Kind::string)) {
        return static_cast<std::int32_t>(integerValue(value->asString(),
                                                      std::numeric_limits<std::int32_t>::min(),
                                                      std::numeric_limits<std::int32_t>::max()));
    }
    if (!value->isNumber()) {
        refuse(*value, "intValue");
    }
    return numberInt(*value);
}

std::uint32_t unsignedIntValue(const Value* value) {
    if (value == nullptr) {
        return 0;
    }
    if (!value->isNumber()) {
        refuse(*value, "unsignedIntValue");
    }
    return value->is(Kind::real) ? static_cast<std::uint32_t>(numberBits(*value))
                                 : static_cast<std::uint32_t>(numberInt(*value));
}

double doubleValue(const Value* value) {
    if (value == nullptr) {
        return 0;
    }
    switch (value->kind()) {
    case Kind::real:
        return value->asReal();
    case Kind::unsignedInteger:
        return static_cast<double>(value->asUnsignedInteger());
    case Kind::boolean:
    case Kind::integer:
        return static_cast<double>(numberBits(*value));
    case Kind::string:
        return doubleOf(value->asString());
    default:
        refuse(*value, "doubleValue");
    }
}

bool boolValue(const Value* value) {
    if (value == nullptr) {
        return false;
    }
    if (value->is(Kind::string)) {
        return boolValue(value->asString());
    }
    if (!value->isNumber()) {
        refuse(*value, "boolValue");
    }
    return value->is(Kind::real) ? value->asReal() != 0 : numberBits(*value) != 0;
}

} // namespace qv
