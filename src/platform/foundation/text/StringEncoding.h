#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace qv {

/// The encodings of strings as bytes; the numbers are the platform's.
enum class StringEncoding : std::uint32_t {
    ascii = 1,
    utf8 = 4,
    isoLatin1 = 5,
    windowsCP1251 = 11,
    windowsCP1252 = 12,
    windowsCP1253 = 13,
    windowsCP1254 = 14,
    windowsCP1250 = 15,
    isoLatin2 = 9,
    utf16 = 10, ///< little-endian behind a byte order mark
    macOSRoman = 30,
    utf16BigEndian = 0x90000100, ///< without a mark, as all below
    utf16LittleEndian = 0x94000100,
    utf32 = 0x8C000100, ///< little-endian behind a byte order mark
    utf32BigEndian = 0x98000100,
    utf32LittleEndian = 0x9C000100,
};

/// The bytes of a UTF-8 text in an encoding. None when the encoding is none of these, lacks one of
/// the characters, or the text is not UTF-8.
[[nodiscard]] std::optional<std::string> dataUsingEncoding(std::string_view text,
                                                           StringEncoding encoding);

/// The UTF-8 text of bytes in Mac OS Roman, where every byte is a character. None for more than
/// 2 GiB.
[[nodiscard]] std::optional<std::string> stringFromMacOSRoman(std::string_view bytes);

} // namespace qv
