#include "platform/foundation/text/StringEncoding.h"

#include "platform/foundation/text/UTF16.h"
#include "platform/foundation/values/UTF8.h"

#include <unicode/localpointer.h>
#include <unicode/ucnv.h>
#include <unicode/ucnv_err.h>
#include <unicode/unistr.h>

#include <array>
#include <cstdint>
#include <utility>

namespace qv {

namespace {

struct Encoding {
    StringEncoding encoding;
    const char* converter; // as the library names it
    std::string_view mark; // before the text
};

using namespace std::string_view_literals; // the marks hold zeros

constexpr std::array kEncodings = {
    Encoding{StringEncoding::ascii, "US-ASCII", ""},
    Encoding{StringEncoding::isoLatin1, "ISO-8859-1", ""},
    Encoding{StringEncoding::isoLatin2, "ISO-8859-2", ""},
    Encoding{StringEncoding::windowsCP1250, "windows-1250", ""},
    Encoding{StringEncoding::windowsCP1251, "windows-1251", ""},
    Encoding{StringEncoding::windowsCP1252, "windows-1252", ""},
    Encoding{StringEncoding::windowsCP1253, "windows-1253", ""},
    Encoding{StringEncoding::windowsCP1254, "windows-1254", ""},
    Encoding{StringEncoding::macOSRoman, "macintosh", ""},
    Encoding{StringEncoding::utf16, "UTF-16LE", "\xFF\xFE"},
    Encoding{StringEncoding::utf16BigEndian, "UTF-16BE", ""},
    Encoding{StringEncoding::utf16LittleEndian, "UTF-16LE", ""},
    Encoding{StringEncoding::utf32, "UTF-32LE", "\xFF\xFE\0\0"sv},
    Encoding{StringEncoding::utf32BigEndian, "UTF-32BE", ""},
    Encoding{StringEncoding::utf32LittleEndian, "UTF-32LE", ""},
};

// Converts in pieces, so that no length is beyond the library's 32 bits.
std::optional<std::string> converted(std::u16string_view units, const Encoding& encoding) {
    UErrorCode status = U_ZERO_ERROR;
    const icu::LocalUConverterPointer converter(ucnv_open(encoding.converter, &status));
    ucnv_setFromUCallBack(converter.getAlias(), UCNV_FROM_U_CALLBACK_STOP, nullptr, nullptr,
                          nullptr, &status);
    if (U_FAILURE(status) != 0) {
        return std::nullopt;
    }
    std::string bytes(encoding.mark);
    const char16_t* from = units.data();
    const char16_t* const end = from + units.size();
    std::array<char, 4096> piece{};
    do {
        char* to = piece.data();
        status = U_ZERO_ERROR;
        ucnv_fromUnicode(converter.getAlias(), &to, piece.data() + piece.size(), &from, end,
                         nullptr, 1, &status);
        bytes.append(piece.data(), to);
    } while (status == U_BUFFER_OVERFLOW_ERROR);
    return U_FAILURE(status) != 0 ? std::nullopt : std::optional(std::move(bytes));
}

} // namespace

std::optional<std::string> dataUsingEncoding(std::string_view text, StringEncoding encoding) {
    if (!isUTF8(text)) {
        return std::nullopt;
    }
    if (encoding == StringEncoding::utf8) {
        return std::string(text);
    }
    for (const Encoding& known : kEncodings) {
        if (known.encoding == encoding) {
            return converted(utf16FromUTF8(text), known);
        }
    }
    return std::nullopt;
}

std::optional<std::string> stringFromMacOSRoman(std::string_view bytes) {
    if (!std::in_range<std::int32_t>(bytes.size())) {
        return std::nullopt;
    }
    const icu::UnicodeString units(bytes.data(), static_cast<std::int32_t>(bytes.size()),
                                   "macintosh");
    std::string text;
    units.toUTF8String(text);
    return units.isBogus() != 0 ? std::nullopt : std::optional(std::move(text));
}

} // namespace qv
