#include "platform/foundation/plist/Base64.h"

#include <array>
#include <cstdint>

namespace qv::plist {

namespace {

constexpr std::string_view kAlphabet =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr std::uint8_t kNoDigit = 0xFF;

constexpr std::array<std::uint8_t, 256> kDigits = [] {
    std::array<std::uint8_t, 256> digits{};
    digits.fill(kNoDigit);
    for (std::size_t i = 0; i < kAlphabet.size(); ++i) {
        digits[static_cast<unsigned char>(kAlphabet[i])] = static_cast<std::uint8_t>(i);
    }
    return digits;
}();

char byteOf(std::uint32_t bits, unsigned shift) {
    return static_cast<char>(static_cast<unsigned char>(bits >> shift));
}

} // namespace

std::string decodeBase64(std::string_view text) {
    std::string bytes;
    bytes.reserve(text.size() / 4 * 3 + 3);
    std::uint32_t group = 0;
    unsigned digits = 0;
    std::size_t padding = 0; // "=" since the last other character that is not white space
    for (const char character : text) {
        const bool pads = character == '=';
        if (pads) {
            ++padding;
        } else if (character != ' ' && (character < '\t' || character > '\r')) {
            padding = 0;
        }
        const std::uint8_t digit = pads ? 0 : kDigits[static_cast<unsigned char>(character)];
        if (digit == kNoDigit) {
            continue;
        }
        group = (group << 6U) | digit;
        if (++digits == 4) {
            bytes += byteOf(group, 16);
            if (padding < 2) {
                bytes += byteOf(group, 8);
            }
            if (padding < 1) {
                bytes += byteOf(group, 0);
            }
            digits = 0;
        }
    }
    return bytes;
}

std::string encodeBase64(std::string_view bytes) {
    std::string text;
    text.reserve((bytes.size() + 2) / 3 * 4);
    for (std::size_t i = 0; i < bytes.size(); i += 3) {
        std::uint32_t group = 0;
        for (std::size_t k = 0; k < 3; ++k) {
            const unsigned char byte =
                i + k < bytes.size() ? static_cast<unsigned char>(bytes[i + k]) : 0;
            group = (group << 8U) | byte;
        }
        const std::size_t taken = bytes.size() - i;
        text += kAlphabet[(group >> 18U) & 0x3FU];
        text += kAlphabet[(group >> 12U) & 0x3FU];
        text += taken > 1 ? kAlphabet[(group >> 6U) & 0x3FU] : '=';
        text += taken > 2 ? kAlphabet[group & 0x3FU] : '=';
    }
    return text;
}

} // namespace qv::plist
