#pragma once

namespace qv {

// Letters, digits and white space of ASCII, whatever the locale.

/// The white space of the C locale.
[[nodiscard]] constexpr bool isSpace(char c) noexcept {
    return c == ' ' || (c >= '\t' && c <= '\r');
}
[[nodiscard]] constexpr bool isDigit(char c) noexcept { return c >= '0' && c <= '9'; }
[[nodiscard]] constexpr bool isLetter(char c) noexcept {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}
[[nodiscard]] constexpr bool isLetterOrDigit(char c) noexcept { return isLetter(c) || isDigit(c); }

/// The value of a hexadecimal digit; -1 for any other character.
[[nodiscard]] constexpr int hexDigitValue(char c) noexcept {
    if (isDigit(c)) {
        return c - '0';
    }
    if (c >= 'a' && c <= 'f') {
        return c - 'a' + 10;
    }
    return c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
}

} // namespace qv
