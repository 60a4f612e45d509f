#include "platform/predicate/language/Literals.h"

#include "platform/foundation/values/Conversions.h"
#include "platform/foundation/values/UTF8.h"
#include "platform/predicate/language/Language.h"

#include <fmt/core.h>

#include <charconv>
#include <cmath>
#include <cstdint>
#include <utility>

namespace qv::predicate {

namespace {

// Escapes of one letter.
constexpr std::string_view kLetters = "abfnrtv";
constexpr std::string_view kLetterValues = "\a\b\f\n\r\t\v";

class StringReader {
public:
    StringReader(std::string_view literal, WildcardEscapes wildcards)
        : literal_(literal), end_(literal.size() - 1), wildcards_(wildcards) {}

    std::string read() {
        const std::size_t special = literal_.find_first_of("\\%");
        const std::size_t plain = special < end_ ? special : end_;
        text_.assign(literal_.substr(1, plain - 1));
        for (index_ = plain; index_ < end_;) {
            const char c = literal_[index_];
            if (c == '\\') {
                escape();
            } else {
                index_ += c == '%' && literal_[index_ + 1] == '%' ? 2U : 1U;
                text_ += c;
            }
        }
        return std::move(text_);
    }

private:
    void escape() {
        const char c = literal_[index_ + 1];
        if (c >= '0' && c <= '7') {
            put(digits(1, 3, 8), 4);
        } else if (c == 'x' || c == 'X') {
            put(digits(2, 2, 16), 4);
        } else if (c == 'u' || c == 'U') {
            unicode();
        } else if (const std::size_t letter = kLetters.find(c); letter < kLetters.size()) {
            put(static_cast<unsigned char>(kLetterValues[letter]), 2);
        } else {
            if (wildcards_ == WildcardEscapes::kept && (c == '?' || c == '*')) {
                text_ += '\\';
            }
            text_ += c; // the rest of a longer character follows by itself
            index_ += 2;
        }
    }

    // The number that `count` digits behind the backslash spell.
    [[nodiscard]] char32_t digits(std::size_t skip, std::size_t count, int radix) const {
        std::uint32_t value = 0;
        const std::size_t begin = index_ + skip;
        const std::string_view wanted = literal_.substr(begin, std::min(count, end_ - begin));
        const char* const first = wanted.data();
        const char* const last = first + wanted.size();
        const auto [stop, status] = std::from_chars(first, last, value, radix);
        if (status != std::errc{} || stop != last || wanted.size() < count) {
            throw LiteralFault(index_, "this escape has too few digits");
        }
        return value;
    }

    void unicode() {
        constexpr std::size_t kLength = 6;
        const char32_t unit = digits(2, 4, 16);
        const bool high = unit >= 0xD800 && unit < 0xDC00;
        if (high && literal_.substr(index_ + kLength, 2) == "\\u") {
            const char32_t low = digits(2 + kLength, 4, 16);
            if (low >= 0xDC00 && low < 0xE000) {
                put(0x10000 + ((unit - 0xD800) << 10U) + (low - 0xDC00), 2 * kLength);
                return;
            }
        }
        if (unit >= 0xD800 && unit < 0xE000) {
            throw LiteralFault(index_, "this escape is half of a character");
        }
        put(unit, kLength);
    }

    void put(char32_t point, std::size_t length) {
        appendUTF8(text_, point);
        index_ += length;
    }

    std::string_view literal_;
    std::size_t end_; // of its content
    WildcardEscapes wildcards_;
    std::size_t index_ = 1;
    std::string text_;
};

double wholeReal(std::string_view digits, int radix) {
    double value = 0;
    for (const char c : digits) {
        std::uint32_t digit = 0;
        (void)std::from_chars(&c, &c + 1, digit, radix);
        value = value * radix + digit;
    }
    return value;
}

Value realOf(double value) {
    if (std::isinf(value)) {
        throw LiteralFault(0, "this number is too large");
    }
    return Value::real(value);
}

} // namespace

std::string stringOfLiteral(std::string_view literal, WildcardEscapes wildcards) {
    return StringReader(literal, wildcards).read();
}

std::string literalOfString(std::string_view text) {
    std::string literal = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\') {
            literal += '\\';
            literal += c;
        } else if (c == '%') {
            literal += "%%";
        } else if (const std::size_t letter = kLetterValues.find(c); letter < kLetters.size()) {
            literal += '\\';
            literal += kLetters[letter];
        } else if ((c >= '\0' && c < ' ') || c == '\x7F') {
            literal += fmt::format("\\x{:02x}", static_cast<unsigned char>(c));
        } else {
            literal += c;
        }
    }
    return literal + '"';
}

Value numberOfLiteral(std::string_view literal) {
    const bool prefixed = literal.size() > 1 && literal[0] == '0' && !isDigit(literal[1]) &&
                          std::string_view(".eE").find(literal[1]) == std::string_view::npos;
    int radix = 10;
    if (prefixed) {
        const char letter = literal[1];
        radix = letter == 'o' ? 8 : 16;
        radix = letter == 'b' ? 2 : radix;
    }
    const std::string_view digits = literal.substr(prefixed ? 2 : 0);
    const char* const first = digits.data();
    const char* const end = first + digits.size();
    std::uint64_t whole = 0;
    const auto [stop, status] = std::from_chars(first, end, whole, radix);
    if (stop == end && status == std::errc{}) {
        return Value::unsignedInteger(whole);
    }
    if (prefixed) {
        return realOf(wholeReal(digits, radix));
    }
    const Value text = Value::string(literal);
    return realOf(doubleValue(&text));
}

std::string literalOfNumber(const Value& number) {
    if (number.is(Value::Kind::integer)) {
        return fmt::format("{}", number.asInteger());
    }
    if (number.is(Value::Kind::unsignedInteger)) {
        return fmt::format("{}", number.asUnsignedInteger());
    }
    std::string literal = fmt::format("{}", number.asReal());
    if (literal.find_first_of(".e") == std::string::npos) {
        literal += ".0";
    }
    return literal;
}

} // namespace qv::predicate
