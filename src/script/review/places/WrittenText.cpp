#include "script/review/places/WrittenText.h"

#include "platform/foundation/values/ASCII.h"

#include <algorithm>
#include <limits>

namespace qv {

namespace {

/// One character as written, or one byte of it where it has no escape: bytes in the text, and in
/// the string.
struct Unit {
    std::size_t written;
    std::size_t meant;
};

std::size_t bytesOf(std::size_t point) {
    return point < 0x80 ? 1 : point < 0x800 ? 2 : point < 0x10000 ? 3 : 4;
}

std::size_t numberAt(std::string_view text, std::size_t most, int base, std::size_t& digits) {
    std::size_t number = 0;
    for (digits = 0; digits < std::min(most, text.size()); ++digits) {
        const int digit = hexDigitValue(text[digits]);
        if (digit < 0 || digit >= base) {
            break;
        }
        number = number * static_cast<std::size_t>(base) + static_cast<std::size_t>(digit);
    }
    return number;
}

// Reads \uXXXX, or two of them for a character of UTF-16's higher planes.
Unit unitOfUTF16(std::string_view text) {
    std::size_t digits = 0;
    const std::size_t high = numberAt(text.substr(2), 4, 16, digits);
    if (high >= 0xD800 && high < 0xDC00 && text.substr(2 + digits, 1) == "\\") {
        return {std::min<std::size_t>(text.size(), 12), 4};
    }
    return {2 + digits, bytesOf(high)};
}

Unit unitOfBrackets(std::string_view text, TextNotation notation) {
    if (text.front() != '\\' || text.size() < 2) {
        return {1, 1};
    }
    const char letter = text[1];
    if (letter == (notation == TextNotation::json ? 'u' : 'U')) {
        return unitOfUTF16(text);
    }
    if (notation == TextNotation::oldStyle && isDigit(letter)) {
        std::size_t digits = 0;
        const std::size_t byte = numberAt(text.substr(1), 3, 8, digits);
        return {1 + std::max<std::size_t>(digits, 1), bytesOf(byte)};
    }
    return {2, 1};
}

Unit unitOfXML(std::string_view text) {
    const std::size_t end = text.substr(0, 16).find(';');
    if (text.front() != '&' || end == std::string_view::npos) {
        return {1, 1};
    }
    if (text.substr(1, 1) != "#") {
        return {end + 1, 1};
    }
    std::size_t digits = 0;
    const bool isHex = text.substr(2, 1) == "x";
    return {end + 1, bytesOf(isHex ? numberAt(text.substr(3), 8, 16, digits)
                                   : numberAt(text.substr(2), 8, 10, digits))};
}

struct Reached {
    std::size_t written;
    std::size_t meant;
};

Reached walk(std::string_view content, TextNotation notation, std::size_t most) {
    Reached at{0, 0};
    while (at.written < content.size()) {
        const std::string_view rest = content.substr(at.written);
        const Unit unit =
            notation == TextNotation::xml ? unitOfXML(rest) : unitOfBrackets(rest, notation);
        if (at.meant + unit.meant > most) {
            break;
        }
        at.written += unit.written;
        at.meant += unit.meant;
    }
    return {std::min(at.written, content.size()), at.meant};
}

} // namespace

std::string_view contentOfLeaf(std::string_view leaf, TextNotation notation) noexcept {
    if (notation == TextNotation::xml) {
        const std::size_t open = leaf.find('>');
        const std::size_t close = leaf.rfind("</");
        return open == std::string_view::npos || close == std::string_view::npos || close <= open
                   ? std::string_view()
                   : leaf.substr(open + 1, close - open - 1);
    }
    const bool isQuoted = leaf.size() >= 2 && (leaf.front() == '"' || leaf.front() == '\'');
    return isQuoted ? leaf.substr(1, leaf.size() - 2) : leaf;
}

std::size_t writtenOffset(std::string_view content, TextNotation notation, std::size_t offset) {
    return walk(content, notation, offset).written;
}

std::size_t lengthOfString(std::string_view content, TextNotation notation) {
    return walk(content, notation, std::numeric_limits<std::size_t>::max()).meant;
}

} // namespace qv
