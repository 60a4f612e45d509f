#include "platform/foundation/plist/TextEncoding.h"

#include "platform/foundation/plist/Refusal.h"
#include "platform/foundation/values/UTF8.h"

#include <fmt/core.h>
#include <unicode/localpointer.h>
#include <unicode/ucnv.h>
#include <unicode/ucnv_err.h>

#include <algorithm>
#include <array>
#include <bit>
#include <optional>
#include <utility>

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

// The name of the encoding in an XML declaration; none when it names none.
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

bool isUTF8Name(std::string_view name) {
    const auto lower = [](char c) {
        return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c;
    };
    const auto is = [&](std::string_view known) {
        return std::ranges::equal(name, known, {}, lower);
    };
    return is("utf-8") || is("utf8");
}

// Returns nothing for a name that ICU does not know. A comma would begin options of ICU's own.
icu::LocalUConverterPointer converterNamed(const std::string& name) {
    constexpr std::size_t kLongestName = 64;
    UErrorCode status = U_ZERO_ERROR;
    icu::LocalUConverterPointer converter;
    if (name.size() <= kLongestName && name.find_first_of(",\0"sv) == std::string::npos &&
        ucnv_countAliases(name.c_str(), &status) != 0 && U_SUCCESS(status) != 0) {
        converter.adoptInstead(ucnv_open(name.c_str(), &status));
        ucnv_setToUCallBack(converter.getAlias(), UCNV_TO_U_CALLBACK_STOP, nullptr, nullptr,
                            nullptr, &status);
    }
    return U_SUCCESS(status) != 0 ? std::move(converter) : icu::LocalUConverterPointer();
}

Result decodeWith(UConverter& converter, std::string_view data) {
    UErrorCode status = U_ZERO_ERROR;
    const icu::LocalUConverterPointer utf8(ucnv_open("UTF-8", &status));
    ucnv_setFromUCallBack(utf8.getAlias(), UCNV_FROM_U_CALLBACK_STOP, nullptr, nullptr, nullptr,
                          &status); // as a lone surrogate has no place in UTF-8
    std::string text;
    std::array<char16_t, 1024> units{};
    std::array<char, 4096> piece{};
    char16_t* firstUnit = units.data();
    char16_t* unitsEnd = units.data();
    const char* from = data.data();
    const char* const end = data.data() + data.size();
    bool isFirst = true;
    do {
        char* to = piece.data();
        status = status == U_BUFFER_OVERFLOW_ERROR ? U_ZERO_ERROR : status;
        ucnv_convertEx(utf8.getAlias(), &converter, &to, piece.data() + piece.size(), &from, end,
                       units.data(), &firstUnit, &unitsEnd, units.data() + units.size(),
                       static_cast<UBool>(isFirst), 1, &status);
        text.append(piece.data(), to);
        isFirst = false;
    } while (status == U_BUFFER_OVERFLOW_ERROR);
    if (U_FAILURE(status) != 0) {
        const std::string_view rest(reinterpret_cast<const char*>(firstUnit),
                                    static_cast<std::size_t>(unitsEnd - firstUnit) * 2);
        appendUTF16(text, rest, std::endian::native == std::endian::big);
        return tl::unexpected(textRefusal(text, text.size(), kCannotConvert));
    }
    return DecodedText(std::move(text));
}

Result decodeAs(std::string_view name, std::string_view data) {
    if (isUTF8Name(name)) {
        return checkUTF8(data);
    }
    const icu::LocalUConverterPointer converter = converterNamed(std::string(name));
    const bool isKnown = converter.isValid() != 0;
    // Its declaration was read byte by byte, and no wider encoding has it so.
    if (isKnown && ucnv_getMinCharSize(converter.getAlias()) == 1) {
        return decodeWith(*converter, data);
    }
    const auto place = static_cast<std::size_t>(name.data() - data.data());
    return tl::unexpected(textRefusal(
        data, place,
        fmt::format("Encountered {} encoding ({}) on line {{line}}", isKnown ? "wrong" : "unknown",
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
