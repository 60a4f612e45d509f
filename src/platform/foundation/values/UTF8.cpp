#include "platform/foundation/values/UTF8.h"

#include <cstdint>
#include <cstring>

namespace qv {

namespace {

// Bytes of the sequence that `lead` begins; 0 when none does.
std::size_t sequenceLength(unsigned char lead) {
    if (lead < 0x80) {
        return 1;
    }
    if (lead < 0xC2 || lead > 0xF4) {
        return 0;
    }
    if (lead < 0xE0) {
        return 2;
    }
    return lead < 0xF0 ? 3 : 4;
}

unsigned char byteAt(std::string_view text, std::size_t index) {
    return static_cast<unsigned char>(text[index]);
}

// The second byte's range excludes overlong forms, surrogates and what lies above U+10FFFF.
bool isSecondByte(unsigned char lead, unsigned char second) {
    switch (lead) {
    case 0xE0:
        return second >= 0xA0 && second <= 0xBF;
    case 0xED:
        return second >= 0x80 && second <= 0x9F;
    case 0xF0:
        return second >= 0x90 && second <= 0xBF;
    case 0xF4:
        return second >= 0x80 && second <= 0x8F;
    default:
        return (second & 0xC0U) == 0x80U;
    }
}

// Skips whole words of ASCII at once.
std::size_t skipASCII(std::string_view text, std::size_t index) {
    constexpr std::uint64_t kHighBits = 0x8080808080808080U;
    std::uint64_t word = 0;
    while (index + sizeof(word) <= text.size()) {
        std::memcpy(&word, text.data() + index, sizeof(word));
        if ((word & kHighBits) != 0) {
            break;
        }
        index += sizeof(word);
    }
    return index;
}

} // namespace

std::size_t validUTF8Length(std::string_view text) noexcept {
    std::size_t index = 0;
    while (true) {
        index = skipASCII(text, index);
        if (index == text.size()) {
            return index;
        }
        const unsigned char lead = byteAt(text, index);
        const std::size_t length = sequenceLength(lead);
        if (length == 0 || index + length > text.size() ||
            (length > 1 && !isSecondByte(lead, byteAt(text, index + 1)))) {
            return index;
        }
        for (std::size_t i = 2; i < length; ++i) {
            if ((byteAt(text, index + i) & 0xC0U) != 0x80U) {
                return index;
            }
        }
        index += length;
    }
}

char32_t decodeUTF8(std::string_view text, std::size_t& index) noexcept {
    const unsigned char lead = byteAt(text, index++);
    const std::size_t length = sequenceLength(lead);
    if (length < 2) {
        return lead;
    }
    char32_t point = lead & (0x7FU >> length);
    for (std::size_t i = 1; i < length && index < text.size(); ++i) {
        point = (point << 6U) | (byteAt(text, index++) & 0x3FU);
    }
    return point;
}

void appendUTF8(std::string& out, char32_t point) {
    const auto continuation = [&](unsigned shift) {
        out += static_cast<char>(0x80U | ((point >> shift) & 0x3FU));
    };
    if (point < 0x80) {
        out += static_cast<char>(point);
    } else if (point < 0x800) {
        out += static_cast<char>(0xC0U | (point >> 6U));
        continuation(0);
    } else if (point < 0x10000) {
        out += static_cast<char>(0xE0U | (point >> 12U));
        continuation(6);
        continuation(0);
    } else {
        out += static_cast<char>(0xF0U | (point >> 18U));
        continuation(12);
        continuation(6);
        continuation(0);
    }
}

} // namespace qv
