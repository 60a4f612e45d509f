#pragma once

#include <algorithm>
#include <string_view>

namespace qv {

/// Takes the first field of a text, and the separator behind it, off the text.
[[nodiscard]] inline std::string_view takeField(std::string_view& text, char separator) noexcept {
    const auto* end = std::ranges::find(text, separator);
    const std::string_view field(text.begin(), end);
    text = std::string_view(end == text.end() ? end : end + 1, text.end());
    return field;
}

} // namespace qv
