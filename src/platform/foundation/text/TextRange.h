#pragma once

#include <cstdint>

namespace qv {

/// Part of a string, in UTF-16 code units.
struct Range {
    std::uint64_t location = 0;
    std::uint64_t length = 0;
    friend bool operator==(const Range&, const Range&) = default;
};

/// The location of what is not there.
inline constexpr std::uint64_t kNotFound = 0x7FFFFFFFFFFFFFFF;

} // namespace qv
