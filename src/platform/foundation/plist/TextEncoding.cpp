#include "platform/foundation/plist/TextEncoding.h"

#include "platform/foundation/plist/Refusal.h"
#include "platform/foundation/values/UTF8.h"

#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>

namespace qv::plist {

namespace {

using Result = tl::expected<DecodedText, Error>;
using namespace std::string_view_literals;

constexpr std::string_view kCannotConvert = "Unable to convert string to correct encoding";

char32_t unitAt(std::string_view bytes, std::size_t index, std::size_t size, bool bigEndian) {
    char32_t unit = 0;
    for (std::size_t i = 0; i < size; ++i) {
        const std::size_t place = bigEndian ? i : size - 1 - i;
        unit = (unit << 8U) | static_cast<unsigned char>(bytes[index + place]);
    }
    return unit;
}

bool isHighSurrogate(char32_t unit) { return unit >= 0xD800 && unit < 0xDC00; }
bool isLowSurrogate(char32_t unit) { return unit >= 0xDC00 && unit < 0xE000; }

Result decodeUTF16(std::string_view bytes, bool bigEndian) {
    std::string text;
    text.reserve(bytes.size() / 2);
    if (appendUTF16(text, bytes, bigEndian) != bytes.size()) {
        return tl::unexpected(textRefusal(text, text.size(), kCannotConvert));
    }
    return DecodedText(std::move(text));
}

Result decodeUTF32(std::string_view bytes, bool bigEndian) {
    std::string text;
    text.reserve(bytes.size() / 4);
    for (std::size_t i = 0; i < bytes.size(); i += 4) {
        const char32_t point = bytes.size() - i < 4 ? 0x110000 : unitAt(bytes, i, 4, bigEndian);
        if (point > 0x10FFFF || isHighSurrogate(point) || isLowSurrogate(point)) {
            return tl::unexpected(textRefusal(text, text.size(), kCannotConvert));
        }
        appendUTF8(text, point);
    }
    return DecodedText(std::move(text));
}

Result checkUTF8(std::string_view bytes) {
    const std::size_t valid = validUTF8Length(bytes);
    if (valid != bytes.size()) {
        return tl::unexpected(textRefusal(bytes.substr(0, valid), valid, kCannotConvert));
    }
    return DecodedText(bytes);
}

// The code points of the bytes 80 to FF; 0 where a byte stands for none.
using UpperHalf = std::array<char16_t, 128>;

constexpr UpperHalf kLatin1 = [] {
    UpperHalf points{};
    for (std::size_t i = 0; i < points.size(); ++i) {
        points[i] = static_cast<char16_t>(0x80 + i);
    }
    return points;
}();

constexpr UpperHalf kLatin9 = [] {
    UpperHalf points = kLatin1;
    constexpr std::array<std::array<char16_t, 2>, 8> kDifferences{{{0xA4, 0x20AC},
                                                                   {0xA6, 0x0160},
                                                                   {0xA8, 0x0161},
                                                                   {0xB4, 0x017D},
                                                                   {0xB8, 0x017E},
                                                                   {0xBC, 0x0152},
                                                                   {0xBD, 0x0153},
                                                                   {0xBE, 0x0178}}};
    for (const auto& [byte, point] : kDifferences) {
        points[byte - 0x80U] = point;
    }
    return points;
}();

constexpr UpperHalf kWindows1252 = [] {
    UpperHalf points = kLatin1;
    constexpr std::array<char16_t, 32> kC1{
        0x20AC, 0,      0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
        0x2039, 0x0152, 0,      0x017D, 0,      0,      0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
        0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0,      0x017E, 0x0178};
    std::ranges::copy(kC1, points.begin());
    return points;
}();

constexpr UpperHalf kASCII{};

Result decodeSingleBytes(std::string_view bytes, const UpperHalf& upperHalf) {
    std::string text;
    text.reserve(bytes.size() + bytes.size() / 8);
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        const char32_t point = byte < 0x80 ? byte : upperHalf[byte - 0x80U];
        if (byte >= 0x80 && point == 0) {
            return tl::unexpected(textRefusal(text, text.size(), kCannotConvert));
        }
        appendUTF8(text, point);
    }
    return DecodedText(std::move(text));
}

// Where the name of the encoding stands in an XML declaration; nothing when none is named.
std::optional<std::string_view> declaredEncoding(std::string_view text) {
    if (!text.starts_with("<?xml")) {
        return std::nullopt;
    }
    const std::string_view declaration = text.substr(0, text.find("?>"));
    const std::size_t place = declaration.find("encoding");
    if (place == std::string_view::npos) {
        return std::nullopt;
    }
    const std::size_t open = declaration.find_first_of("\"'", place);
    if (open == std::string_view::npos) {
        return std::nullopt;
    }
    const std::size_t close = declaration.find(declaration[open], open + 1);
    if (close == std::string_view::npos) {
        return std::nullopt;
    }
    return declaration.substr(open + 1, close - open - 1);
}

bool sameName(std::string_view left, std::string_view right) {
    const auto lower = [](char c) {
        return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c;
    };
    return std::ranges::equal(left, right, {}, lower, lower);
}

Result decodeAs(std::string_view name, std::string_view data) {
    struct Named {
        std::string_view name;
        const UpperHalf* upperHalf; // a null pointer: UTF-8
    };
    static constexpr std::array kNames{
        Named{"utf-8", nullptr},        Named{"utf8", nullptr},
        Named{"us-ascii", &kASCII},     Named{"ascii", &kASCII},
        Named{"iso-8859-1", &kLatin1},  Named{"latin1", &kLatin1},
        Named{"iso-8859-15", &kLatin9}, Named{"windows-1252", &kWindows1252},
        Named{"cp1252", &kWindows1252},
    };
    for (const Named& known : kNames) {
        if (sameName(known.name, name)) {
            return known.upperHalf == nullptr ? checkUTF8(data)
                                              : decodeSingleBytes(data, *known.upperHalf);
        }
    }
    const auto place = static_cast<std::size_t>(name.data() - data.data());
    return tl::unexpected(
        textRefusal(data, place,
                    fmt::format("Encountered unknown encoding ({}) on line {{line}}",
                                isUTF8(name) && name.size() <= 64 ? name : "?"sv)));
}

} // namespace

std::size_t appendUTF16(std::string& out, std::string_view units, bool bigEndian) {
    std::size_t index = 0;
    while (index + 2 <= units.size()) {
        char32_t point = unitAt(units, index, 2, bigEndian);
        std::size_t taken = 2;
        if (isHighSurrogate(point) && index + 4 <= units.size()) {
            const char32_t low = unitAt(units, index + 2, 2, bigEndian);
            if (isLowSurrogate(low)) {
                point = 0x10000 + ((point - 0xD800) << 10U) + (low - 0xDC00);
                taken = 4;
            }
        }
        if (isHighSurrogate(point) || isLowSurrogate(point)) {
            break;
        }
        appendUTF8(out, point);
        index += taken;
    }
    return index;
}

Result decodeText(std::string_view data) {
    if (data.starts_with("\xEF\xBB\xBF"sv)) {
        return checkUTF8(data.substr(3));
    }
    if (data.starts_with("\xFF\xFE\0\0"sv) || data.starts_with("\0\0\xFE\xFF"sv)) {
        return decodeUTF32(data.substr(4), data[0] == '\0');
    }
    if (data.starts_with("\xFF\xFE"sv) || data.starts_with("\xFE\xFF"sv)) {
        return decodeUTF16(data.substr(2), data[0] == '\xFE');
    }
    const std::optional<std::string_view> name = declaredEncoding(data);
    return name ? decodeAs(*name, data) : checkUTF8(data);
}

} // namespace qv::plist
