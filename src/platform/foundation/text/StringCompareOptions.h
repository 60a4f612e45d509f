#pragma once

#include <cstdint>

namespace qv {

/// The options of a search in strings; the numbers are the platform's. Combine with `|`.
enum class StringCompareOptions : std::uint16_t {
    none = 0, ///< canonically equivalent texts are the same, forwards
    caseInsensitive = 1,
    literal = 2,   ///< the very same code points
    backwards = 4, ///< the last one first
    anchored = 8,  ///< only at the begin of the range; at its end when backwards
    diacriticInsensitive = 128,
    widthInsensitive = 256,
    /// The wanted string is an ICU regular expression. Goes with `caseInsensitive` and `anchored`;
    /// the other options count for nothing.
    regularExpression = 1024,
};

constexpr StringCompareOptions operator|(StringCompareOptions left, StringCompareOptions right) {
    // NOLINTNEXTLINE(clang-analyzer-optin.core.EnumCastOutOfRange): several at once
    return static_cast<StringCompareOptions>(static_cast<unsigned>(left) |
                                             static_cast<unsigned>(right));
}
/// Whether one of `wanted` is among `options`.
constexpr bool hasOption(StringCompareOptions options, StringCompareOptions wanted) {
    return (static_cast<unsigned>(options) & static_cast<unsigned>(wanted)) != 0;
}

} // namespace qv
