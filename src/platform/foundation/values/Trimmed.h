#pragma once

#include "platform/foundation/values/ASCII.h"

#include <string_view>

namespace qv {

/// A text without the white space of ASCII on both sides.
[[nodiscard]] constexpr std::string_view trimmed(std::string_view text) noexcept {
    while (!text.empty() && isSpace(text.front())) {
        text.remove_prefix(1);
    }
    while (!text.empty() && isSpace(text.back())) {
        text.remove_suffix(1);
    }
    return text;
}

} // namespace qv
