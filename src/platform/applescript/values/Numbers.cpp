#include "platform/applescript/values/Numbers.h"

#include "platform/foundation/values/ASCII.h"
#include "platform/foundation/values/Trimmed.h"

#include <array>
#include <charconv>
#include <cmath>

namespace qv::applescript {

ScriptValue wholeNumber(double value) noexcept {
    return std::abs(value) <= static_cast<double>(kMostInteger)
               ? ScriptValue::integer(static_cast<std::int64_t>(value))
               : ScriptValue::real(value);
}

std::string numberText(const ScriptValue& number) {
    constexpr double kFirstWithExponent = 10'000;
    constexpr double kLastWithExponent = 0.0001;
    std::array<char, 64> buffer{};
    char* const begin = buffer.data();
    char* const end = begin + buffer.size();
    if (number.is(ScriptValue::Kind::integer)) {
        return {begin, std::to_chars(begin, end, number.asInteger()).ptr};
    }
    const double value = number.asReal();
    const double size = std::abs(value);
    const bool hasExponent = std::isfinite(value) && (size >= kFirstWithExponent ||
                                                      (size <= kLastWithExponent && size != 0));
    const auto format = hasExponent ? std::chars_format::scientific : std::chars_format::fixed;
    std::string text(begin, std::to_chars(begin, end, value, format).ptr);
    const std::size_t exponent = hasExponent ? text.find('e') : text.size();
    std::string mantissa = text.substr(0, exponent);
    if (mantissa.find('.') == std::string::npos && std::isfinite(value)) {
        mantissa += ".0";
    }
    if (hasExponent) {
        const std::size_t digits = text.find_first_not_of('0', exponent + 2);
        mantissa.append("E").append(1, text[exponent + 1]).append(text.substr(digits));
    }
    return mantissa;
}

std::optional<std::string> scalarText(const ScriptValue& value) {
    switch (value.kind()) {
    case ScriptValue::Kind::integer:
    case ScriptValue::Kind::real:
        return numberText(value);
    case ScriptValue::Kind::boolean:
        return value.asBoolean() ? "true" : "false";
    case ScriptValue::Kind::constant:
    case ScriptValue::Kind::type:
        return std::string(wordsOf(value.asTerm()));
    default:
        return std::nullopt;
    }
}

std::optional<ScriptValue> numberFromText(std::string_view text) {
    text = trimmed(text);
    if (text.starts_with('+') && text.size() > 1 && text[1] != '-') {
        text.remove_prefix(1);
    }
    const std::string_view digits = text.starts_with('-') ? text.substr(1) : text;
    if (digits.empty() || (!isDigit(digits.front()) && digits.front() != '.')) {
        return std::nullopt; // this refuses "inf" as well
    }
    double value = 0;
    const auto result = std::from_chars(text.data(), text.data() + text.size(), value);
    if (result.ec != std::errc() || result.ptr != text.data() + text.size()) {
        return std::nullopt;
    }
    const bool isWhole = digits.find_first_not_of("0123456789") == std::string_view::npos;
    return isWhole ? wholeNumber(value) : ScriptValue::real(value);
}

} // namespace qv::applescript
