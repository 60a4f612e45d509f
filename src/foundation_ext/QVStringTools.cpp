#include "foundation_ext/QVStringTools.h"

#include "foundation_ext/QVTransforms.h"
#include "platform/foundation/text/CharacterSet.h"
#include "platform/foundation/text/UTF16.h"
#include "platform/foundation/values/UTF8.h"
#include "platform/system/ClassRegistry.h"

#include <algorithm>
#include <array>
#include <unistd.h>

namespace qv {

namespace {

constexpr std::string_view kLowerHex = "0123456789abcdef";
constexpr std::string_view kUpperHex = "0123456789ABCDEF";

void appendHex(std::string& out, unsigned char byte, std::string_view digits) {
    out += digits[byte >> 4U];
    out += digits[byte & 0xFU];
}

CharacterSet lettersAndDigits() {
    CharacterSet set = CharacterSet::lowercaseLetters();
    set |= CharacterSet::uppercaseLetters();
    set |= CharacterSet::withCharactersInString(u"1234567890");
    return set;
}

bool isTrimmed(char16_t unit) {
    constexpr std::u16string_view kTrimmed = u" \t\n\v\f\r\u0085\u00A0\u200B\u2028\u3000";
    return kTrimmed.find(unit) != std::u16string_view::npos;
}

bool canStandInURL(unsigned char byte) {
    return byte > ' ' && byte < 0x7F &&
           std::string_view("\"#%<>[\\]^`{|}").find(static_cast<char>(byte)) ==
               std::string_view::npos;
}

} // namespace

std::string
QVStringTools::stringWithAllCharactersStrippedNotInCharacterSet(std::string_view receiver,
                                                                const CharacterSet& set) {
    std::u16string units = uniCharRepresentation(receiver);
    std::erase_if(units, [&](char16_t unit) { return !set.contains(unit); });
    return utf8FromUTF16(units);
}

std::string QVStringTools::stripNonChar(std::string_view receiver) {
    static const CharacterSet kLettersAndDigits = lettersAndDigits();
    return stringWithAllCharactersStrippedNotInCharacterSet(receiver, kLettersAndDigits);
}

std::string QVStringTools::quoteQuotes(std::string_view receiver) {
    std::string quoted;
    quoted.reserve(receiver.size());
    for (const char c : receiver) {
        if (c == '"') {
            quoted += '\\';
        }
        quoted += c;
    }
    return quoted;
}

std::string QVStringTools::stringWithRemovedWhitespace(std::string_view receiver) {
    std::u16string units = utf16FromUTF8(receiver);
    std::erase_if(units, [](char16_t unit) {
        return unit == u' ' || unit == u'\t' || unit == u'\n' || unit == u'\r';
    });
    const auto begin = std::ranges::find_if_not(units, isTrimmed);
    const auto end =
        std::find_if_not(units.rbegin(), std::make_reverse_iterator(begin), isTrimmed).base();
    return utf8FromUTF16({begin, end});
}

std::optional<std::string> QVStringTools::stringWithAddedPercentEscapes(std::string_view receiver) {
    if (!isUTF8(receiver)) {
        return std::nullopt;
    }
    std::string escaped;
    escaped.reserve(receiver.size());
    for (const char c : receiver) {
        const auto byte = static_cast<unsigned char>(c);
        if (canStandInURL(byte)) {
            escaped += c;
        } else {
            escaped += '%';
            appendHex(escaped, byte, kUpperHex);
        }
    }
    return escaped;
}

std::u16string QVStringTools::uniCharRepresentation(std::string_view receiver) {
    return utf16FromUTF8(receiver);
}

std::optional<std::string> QVStringTools::uuid() {
    std::array<unsigned char, 16> bytes{};
    if (::getentropy(bytes.data(), bytes.size()) != 0) {
        return std::nullopt;
    }
    bytes[6] = static_cast<unsigned char>((bytes[6] & 0x0FU) | 0x40U); // version 4: random
    bytes[8] = static_cast<unsigned char>((bytes[8] & 0x3FU) | 0x80U); // variant of RFC 4122
    std::string text;
    for (std::size_t index = 0; index < bytes.size(); ++index) {
        if (index == 4 || index == 6 || index == 8 || index == 10) {
            text += '-';
        }
        appendHex(text, bytes.at(index), kUpperHex);
    }
    return text;
}

std::string QVStringTools::stringWithUniCodeChar(char16_t unit) {
    constexpr char16_t kByteOrderMark = 0xFEFF;
    constexpr char16_t kSwappedByteOrderMark = 0xFFFE;
    if (unit == kByteOrderMark || unit == kSwappedByteOrderMark) {
        return {};
    }
    return utf8FromUTF16({&unit, 1});
}

std::optional<std::string>
QVStringTools::stringWithHexValuesForData(std::optional<std::string_view> data) {
    if (!data || data->data() == nullptr) {
        return std::nullopt;
    }
    std::string text;
    text.reserve(data->size() * 2);
    for (const char c : *data) {
        appendHex(text, static_cast<unsigned char>(c), kLowerHex);
    }
    return text;
}

std::optional<std::string> QVStringTools::computeDigestStringOfType(std::string_view receiver,
                                                                    DigestType digestType,
                                                                    StringEncoding usingEncoding,
                                                                    Error* error) {
    const auto bytes = dataUsingEncoding(receiver, usingEncoding);
    return bytes ? QVTransforms::computeDigestStringOfType(*bytes, digestType, error)
                 : std::nullopt;
}

std::optional<std::string> QVStringTools::computeDigestDataOfType(std::string_view receiver,
                                                                  DigestType digestType,
                                                                  StringEncoding usingEncoding,
                                                                  Error* error) {
    const auto bytes = dataUsingEncoding(receiver, usingEncoding);
    return bytes ? QVTransforms::computeDigestOfType(*bytes, digestType, error) : std::nullopt;
}

std::optional<std::string> QVStringTools::md5Digest(std::string_view receiver) {
    return computeDigestStringOfType(receiver, kSecDigestMD5, StringEncoding::utf8, nullptr);
}

std::optional<std::string> QVStringTools::sha1Digest(std::string_view receiver) {
    return computeDigestStringOfType(receiver, kSecDigestSHA1, StringEncoding::utf8, nullptr);
}

std::optional<std::string> QVStringTools::md5DigestData(std::string_view receiver) {
    return computeDigestDataOfType(receiver, kSecDigestMD5, StringEncoding::utf8, nullptr);
}

std::optional<std::string> QVStringTools::sha1DigestData(std::string_view receiver) {
    return computeDigestDataOfType(receiver, kSecDigestSHA1, StringEncoding::utf8, nullptr);
}

QV_REGISTER_CATEGORY(
    NSString, NSObject, QVStringTools, QV_CLASS_METHOD(uuid, "uuid"),
    QV_CLASS_METHOD(stringWithUniCodeChar, "stringWithUniCodeChar:"),
    QV_CLASS_METHOD(stringWithHexValuesForData, "stringWithHexValuesForData:"),
    QV_METHOD_AS(
        "compareVersionTo:", requires { Self::compareVersionTo("", ""); }),
    QV_METHOD_AS(
        "compareVersionTo:withSeperator:", requires { Self::compareVersionTo("", "", ""); }),
    QV_RECEIVER_METHOD(compareLikeFinder, "compareLikeFinder:"),
    QV_RECEIVER_METHOD(reverseDomainParent, "reverseDomainParent"),
    QV_RECEIVER_METHOD(domainParent, "domainParent"),
    QV_RECEIVER_METHOD(rangeOfString, "rangeOfString:options:range:occurence:"),
    QV_RECEIVER_METHOD(subStringToOccurenceOf, "subStringToOccurenceOf:options:range:occurence:"),
    QV_RECEIVER_METHOD(containsString, "containsString:"),
    QV_RECEIVER_METHOD(stringWithAllCharactersStrippedNotInCharacterSet,
                       "stringWithAllCharactersStrippedNotInCharacterSet:"),
    QV_RECEIVER_METHOD(stripNonChar, "stripNonChar"),
    QV_RECEIVER_METHOD(quoteQuotes, "quoteQuotes"),
    QV_RECEIVER_METHOD(stringByReplacingString, "stringByReplacingString:withString:options:"),
    QV_RECEIVER_METHOD(stringWithRemovedWhitespace, "stringWithRemovedWhitespace"),
    QV_RECEIVER_METHOD(stringWithAddedPercentEscapes, "stringWithAddedPercentEscapes"),
    QV_RECEIVER_METHOD(uniCharRepresentation, "uniCharRepresentation"),
    QV_RECEIVER_METHOD(computeDigestStringOfType, "computeDigestStringOfType:usingEncoding:error:"),
    QV_RECEIVER_METHOD(computeDigestDataOfType, "computeDigestDataOfType:usingEncoding:error:"),
    QV_RECEIVER_METHOD(md5Digest, "md5Digest"), QV_RECEIVER_METHOD(sha1Digest, "sha1Digest"),
    QV_RECEIVER_METHOD(md5DigestData, "md5DigestData"),
    QV_RECEIVER_METHOD(sha1DigestData, "sha1DigestData"));

} // namespace qv
