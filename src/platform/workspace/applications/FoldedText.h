#pragma once

#include <string>
#include <string_view>

namespace qv {

/// Identifiers are compared without regard to the case of ASCII letters.
[[nodiscard]] inline std::string folded(std::string_view text) {
    std::string result(text);
    for (char& c : result) {
        c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    }
    return result;
}

} // namespace qv
