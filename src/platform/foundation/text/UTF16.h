#pragma once

#include <string>
#include <string_view>

namespace qv {

/// The code units that positions in strings count. A byte that is not UTF-8 becomes U+FFFD.
[[nodiscard]] std::u16string utf16FromUTF8(std::string_view text);

/// Half of a surrogate pair, which UTF-8 has no form for, becomes U+FFFD.
[[nodiscard]] std::string utf8FromUTF16(std::u16string_view units);

/// The code point at `index`; moves `index` behind it. Half of a surrogate pair is itself.
[[nodiscard]] char32_t decodeUTF16(std::u16string_view units, std::size_t& index) noexcept;

void appendUTF16(std::u16string& out, char32_t point);

} // namespace qv
