#include "platform/foundation/text/UTF16.h"

#include "platform/foundation/values/UTF8.h"

namespace qv {

namespace {

constexpr char16_t kReplacement = 0xFFFD;

bool isSurrogate(char32_t unit) { return (unit & ~char32_t{0x7FF}) == 0xD800; }
bool isHighSurrogate(char32_t unit) { return (unit & ~char32_t{0x3FF}) == 0xD800; }
bool isLowSurrogate(char32_t unit) { return (unit & ~char32_t{0x3FF}) == 0xDC00; }

} // namespace

std::u16string utf16FromUTF8(std::string_view text) {
    std::u16string units;
    units.reserve(text.size());
    while (!text.empty()) {
        const std::size_t valid = validUTF8Length(text);
        for (std::size_t index = 0; index < valid;) {
            appendUTF16(units, decodeUTF8(text, index));
        }
        text.remove_prefix(valid);
        if (!text.empty()) {
            units += kReplacement;
            text.remove_prefix(1);
        }
    }
    return units;
}

std::string utf8FromUTF16(std::u16string_view units) {
    std::string text;
    text.reserve(units.size());
    for (std::size_t index = 0; index < units.size();) {
        const char32_t point = decodeUTF16(units, index);
        appendUTF8(text, isSurrogate(point) ? kReplacement : point);
    }
    return text;
}

char32_t decodeUTF16(std::u16string_view units, std::size_t& index) noexcept {
    const char32_t unit = units[index++];
    if (!isHighSurrogate(unit) || index == units.size() || !isLowSurrogate(units[index])) {
        return unit;
    }
    return 0x10000 + ((unit & 0x3FFU) << 10U) + (units[index++] & 0x3FFU);
}

void appendUTF16(std::u16string& out, char32_t point) {
    if (point < 0x10000) {
        out += static_cast<char16_t>(point);
    } else {
        out += static_cast<char16_t>(0xD7C0U + (point >> 10U));
        out += static_cast<char16_t>(0xDC00U + (point & 0x3FFU));
    }
}

} // namespace qv
