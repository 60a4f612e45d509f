#include "platform/foundation/plist/OldStyleScanner.h"

#include "platform/foundation/plist/Refusal.h"
#include "platform/foundation/values/ASCII.h"
#include "platform/foundation/values/UTF8.h"

#include <fmt/core.h>

#include <algorithm>
#include <array>

namespace qv::plist {

namespace {

// The upper half of the NeXTSTEP encoding.
constexpr std::array<char16_t, 128> kNextStep{
    0x00A0, 0x00C0, 0x00C1, 0x00C2, 0x00C3, 0x00C4, 0x00C5, 0x00C7, 0x00C8, 0x00C9, 0x00CA, 0x00CB,
    0x00CC, 0x00CD, 0x00CE, 0x00CF, 0x00D0, 0x00D1, 0x00D2, 0x00D3, 0x00D4, 0x00D5, 0x00D6, 0x00D9,
    0x00DA, 0x00DB, 0x00DC, 0x00DD, 0x00DE, 0x00B5, 0x00D7, 0x00F7, 0x00A9, 0x00A1, 0x00A2, 0x00A3,
    0x2044, 0x00A5, 0x0192, 0x00A7, 0x00A4, 0x2019, 0x201C, 0x00AB, 0x2039, 0x203A, 0xFB01, 0xFB02,
    0x00AE, 0x2013, 0x2020, 0x2021, 0x00B7, 0x00A6, 0x00B6, 0x2022, 0x201A, 0x201E, 0x201D, 0x00BB,
    0x2026, 0x2030, 0x00AC, 0x00BF, 0x00B9, 0x02CB, 0x00B4, 0x02C6, 0x02DC, 0x00AF, 0x02D8, 0x02D9,
    0x00A8, 0x00B2, 0x02DA, 0x00B8, 0x00B3, 0x02DD, 0x02DB, 0x02C7, 0x2014, 0x00B1, 0x00BC, 0x00BD,
    0x00BE, 0x00E0, 0x00E1, 0x00E2, 0x00E3, 0x00E4, 0x00E5, 0x00E7, 0x00E8, 0x00E9, 0x00EA, 0x00EB,
    0x00EC, 0x00C6, 0x00ED, 0x00AA, 0x00EE, 0x00EF, 0x00F0, 0x00F1, 0x0141, 0x00D8, 0x0152, 0x00BA,
    0x00F2, 0x00F3, 0x00F4, 0x00F5, 0x00F6, 0x00E6, 0x00F9, 0x00FA, 0x00FB, 0x0131, 0x00FC, 0x00FD,
    0x0142, 0x00F8, 0x0153, 0x00DF, 0x00FE, 0x00FF, 0xFFFD, 0xFFFD};

bool isUnquoted(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
           std::string_view("_$/:.-").find(c) != std::string_view::npos;
}

// Returns 16 for a character that is not a digit of any base.
unsigned digitOf(char c) {
    if (c >= '0' && c <= '9') {
        return static_cast<unsigned>(c - '0');
    }
    const char lower = static_cast<char>(static_cast<unsigned char>(c) | 0x20U);
    return lower >= 'a' && lower <= 'f' ? static_cast<unsigned>(lower - 'a') + 10 : 16;
}

} // namespace

bool OldStyleScanner::fail(std::size_t offset, std::string_view wording) {
    if (!error_) {
        error_ = textRefusal(text_, offset, wording);
    }
    return false;
}

bool OldStyleScanner::take(char c) noexcept {
    if (peek() != c || atEnd()) {
        return false;
    }
    ++place_;
    return true;
}

bool OldStyleScanner::skipSpace() {
    while (!atEnd()) {
        if (isSpace(text_[place_])) {
            ++place_;
        } else if (at("//")) {
            place_ = std::min(text_.find_first_of("\r\n", place_), text_.size());
        } else if (at("/*")) {
            const std::size_t end = text_.find("*/", place_ + 2);
            if (end == std::string_view::npos) {
                return fail("Unterminated comment started on line {line}");
            }
            place_ = end + 2;
        } else {
            break;
        }
    }
    return true;
}

bool OldStyleScanner::atString() const noexcept {
    const char c = peek();
    return c == '"' || c == '\'' || (!atEnd() && isUnquoted(c));
}

bool OldStyleScanner::readString(std::string& out) {
    out.clear();
    if (peek() == '"' || peek() == '\'') {
        return readQuoted(out);
    }
    const std::size_t start = place_;
    while (!atEnd() && isUnquoted(text_[place_])) {
        ++place_;
    }
    out = text_.substr(start, place_ - start);
    return true;
}

bool OldStyleScanner::readQuoted(std::string& out) {
    const std::size_t start = place_++;
    const std::array<char, 2> stops{text_[start], '\\'};
    while (true) {
        const std::size_t stop = text_.find_first_of(stops.data(), place_, stops.size());
        if (stop == std::string_view::npos) {
            return fail(start, "Unterminated quoted string starting on line {line}");
        }
        out += text_.substr(place_, stop - place_);
        place_ = stop + 1;
        if (text_[stop] != '\\') {
            return true;
        }
        if (atEnd()) {
            return fail(start, "Unterminated quoted string starting on line {line}");
        }
        if (!readEscape(out)) {
            return false;
        }
    }
}

unsigned OldStyleScanner::takeDigits(unsigned base, unsigned most) {
    unsigned value = 0;
    for (; most > 0 && !atEnd() && digitOf(text_[place_]) < base; --most) {
        value = value * base + digitOf(text_[place_++]);
    }
    return value;
}

// Reads the rest of an escape, behind its backslash.
bool OldStyleScanner::readEscape(std::string& out) {
    constexpr std::string_view kLetters = "abfnrtv";
    constexpr std::string_view kControls = "\a\b\f\n\r\t\v";
    const char c = text_[place_];
    if (digitOf(c) < 8) {
        const unsigned byte = takeDigits(8, 3) & 0xFFU;
        appendUTF8(out, byte < 0x80 ? byte : kNextStep[byte - 0x80U]);
        return true;
    }
    if (c == 'U') {
        return readUnit(out);
    }
    if (const std::size_t letter = kLetters.find(c); letter != std::string_view::npos) {
        out += kControls[letter];
    } else {
        out += c; // the first byte of a longer character too: the rest follows as it stands
    }
    ++place_;
    return true;
}

// Reads \UXXXX: one UTF-16 code unit; a high surrogate needs the low one after it.
bool OldStyleScanner::readUnit(std::string& out) {
    const std::size_t start = place_ - 1;
    ++place_;
    char32_t unit = takeDigits(16, 4);
    if (unit >= 0xD800 && unit < 0xE000) {
        char32_t low = 0;
        if (unit < 0xDC00 && at("\\U")) {
            place_ += 2;
            low = takeDigits(16, 4);
        }
        if (low < 0xDC00 || low >= 0xE000) {
            return fail(start, fmt::format("Unpaired surrogate \\U{:04x} on line {{line}}",
                                           static_cast<unsigned>(unit)));
        }
        unit = 0x10000 + ((unit - 0xD800) << 10U) + (low - 0xDC00);
    }
    appendUTF8(out, unit);
    return true;
}

bool OldStyleScanner::readData(std::string& out) {
    out.clear();
    ++place_;
    while (true) {
        while (!atEnd() && isSpace(text_[place_])) {
            ++place_;
        }
        if (take('>')) {
            return true;
        }
        if (atEnd()) {
            return fail("Expected terminating '>' for data at line {line}");
        }
        const unsigned high = digitOf(text_[place_]);
        if (high == 16) {
            return fail("Malformed data byte group at line {line}; invalid hex");
        }
        ++place_;
        if (atEnd() || text_[place_] == '>' || isSpace(text_[place_])) {
            return fail("Malformed data byte group at line {line}; uneven length");
        }
        const unsigned low = digitOf(text_[place_]);
        if (low == 16) {
            return fail("Malformed data byte group at line {line}; invalid hex");
        }
        ++place_;
        out += static_cast<char>(static_cast<unsigned char>(high << 4U | low));
    }
}

} // namespace qv::plist
