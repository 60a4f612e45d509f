#pragma once

#include <cstdint>

namespace qv {

/// How strings are searched; the numbers are the platform's. Combine with `|`.
enum class StringCompareOptions : std::uint32_t {
    none = 0, ///< what is canonically equivalent is the same, forwards
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
    return static_cast<StringCompareOptions>(static_cast<std::uint32_t>(left) |
                                             static_cast<std::uint32_t>(right));
}
/// Whether one of `wanted` is among `options`.
constexpr bool hasOption(StringCompareOptions options, StringCompareOptions wanted) {
    return (static_cast<std::uint32_t>(options) & static_cast<std::uint32_t>(wanted)) != 0;
}

} // namespace qv
