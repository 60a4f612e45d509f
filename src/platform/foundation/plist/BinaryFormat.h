#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace qv::plist {

// The facts about `bplist00` that the binary reader and writer share. An object begins with a
// marker byte: the type in the high half; a count, a size or a value in the low half.

/// One more character of any value follows.
inline constexpr std::string_view kBinaryMagic = "bplist0";
inline constexpr std::size_t kHeaderSize = 8;
inline constexpr std::size_t kTrailerSize = 32;

enum class BinaryType : std::uint8_t {
    singleton = 0x0, ///< by the whole marker: null, false, true
    integer = 0x1,   ///< 2^low bytes
    real = 0x2,      ///< 2^low bytes
    date = 0x3,      ///< always 33: a double
    data = 0x4,      ///< low: bytes
    ascii = 0x5,     ///< low: bytes
    utf16 = 0x6,     ///< low: units of 2 bytes
    uid = 0x8,       ///< low + 1 bytes
    array = 0xA,     ///< low: references
    set = 0xC,       ///< low: references
    dictionary = 0xD ///< low: pairs; the references of all keys, then those of all values
};

inline constexpr std::uint8_t kNullMarker = 0x00;
inline constexpr std::uint8_t kFalseMarker = 0x08;
inline constexpr std::uint8_t kTrueMarker = 0x09;
inline constexpr std::uint8_t kOneByteInteger = 0x10;
inline constexpr std::uint8_t kTwoByteInteger = 0x11;
inline constexpr std::uint8_t kFourByteInteger = 0x12;
inline constexpr std::uint8_t kDateMarker = 0x33;
inline constexpr std::uint8_t kLargestLowCount = 14; ///< a low half of 15: the count follows

/// The meaning of a marker for the bytes behind it.
enum class BinarySize : std::uint8_t {
    unknown, ///< no object has this marker
    fixed,   ///< so many bytes
    low,     ///< the marker's low half counts units
    follows  ///< an integer object counts units
};

struct BinaryRule {
    BinarySize size = BinarySize::unknown;
    std::uint8_t bytes = 0; ///< when fixed
};

[[nodiscard]] constexpr BinaryRule binaryRule(std::uint8_t marker) noexcept {
    constexpr std::uint8_t kCountFollows = 0xF;
    const auto low = static_cast<std::uint8_t>(marker & 0xFU);
    const auto power = static_cast<std::uint8_t>(1U << (low & 7U));
    const auto fixed = [](bool known, std::uint8_t bytes) {
        return known ? BinaryRule{BinarySize::fixed, bytes} : BinaryRule{};
    };
    switch (static_cast<BinaryType>(marker >> 4U)) {
    case BinaryType::singleton:
        return fixed(marker == kNullMarker || marker == kFalseMarker || marker == kTrueMarker, 0);
    case BinaryType::integer:
        return fixed(low <= 4, power);
    case BinaryType::real:
        return fixed(low == 2 || low == 3, power);
    case BinaryType::date:
        return fixed(marker == kDateMarker, power);
    case BinaryType::uid:
        return fixed(true, static_cast<std::uint8_t>(low + 1));
    case BinaryType::data:
    case BinaryType::ascii:
    case BinaryType::utf16:
    case BinaryType::array:
    case BinaryType::set:
    case BinaryType::dictionary:
        return {low == kCountFollows ? BinarySize::follows : BinarySize::low};
    }
    return {};
}

inline constexpr std::array<BinaryRule, 256> kBinaryRules = [] {
    std::array<BinaryRule, 256> rules{};
    for (std::size_t marker = 0; marker < rules.size(); ++marker) {
        rules[marker] = binaryRule(static_cast<std::uint8_t>(marker));
    }
    return rules;
}();

} // namespace qv::plist
