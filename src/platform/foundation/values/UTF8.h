#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace qv {

/// The length of the longest valid prefix: `text.size()` when all of it is UTF-8 (no overlong
/// forms, no surrogates, nothing above U+10FFFF).
[[nodiscard]] std::size_t validUTF8Length(std::string_view text) noexcept;
[[nodiscard]] inline bool isUTF8(std::string_view text) noexcept {
    return validUTF8Length(text) == text.size();
}

/// The code point at `index` of valid UTF-8; moves `index` behind it.
[[nodiscard]] char32_t decodeUTF8(std::string_view text, std::size_t& index) noexcept;

/// `point` must be a scalar value (no surrogate).
void appendUTF8(std::string& out, char32_t point);

} // namespace qv
