#pragma once

#include <string>
#include <string_view>

namespace qv {

/// Bytes as two lower-case digits each: any range of a type of one byte.
template <typename Bytes> [[nodiscard]] std::string hexadecimal(const Bytes& bytes) {
    constexpr std::string_view kDigits = "0123456789abcdef";
    std::string text;
    for (const auto element : bytes) {
        const auto byte = static_cast<unsigned char>(element);
        text += kDigits[byte / 16];
        text += kDigits[byte % 16];
    }
    return text;
}

} // namespace qv
