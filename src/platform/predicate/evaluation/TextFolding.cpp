#include "platform/predicate/evaluation/TextFolding.h"

#include "platform/foundation/text/CharacterFolding.h"
#include "platform/foundation/text/Decomposition.h"
#include "platform/foundation/values/Exception.h"
#include "platform/foundation/values/UTF8.h"

#include <fmt/core.h>
#include <unicode/bytestream.h>
#include <unicode/casemap.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>

#include <algorithm>
#include <cstring>

namespace qv::predicate {

namespace {

using Sink = icu::StringByteSink<std::string>;

icu::StringPiece piece(std::string_view text) {
    return {text.data(), static_cast<std::int32_t>(text.size())};
}

void requireFolding(UErrorCode status) {
    if (U_FAILURE(status) != 0) {
        throw Exception("NSInternalInconsistencyException",
                        fmt::format("Can't fold a text: {}", u_errorName(status)));
    }
}

std::string caseFolded(std::string_view text) {
    UErrorCode status = U_ZERO_ERROR;
    std::string result;
    Sink sink(&result);
    icu::CaseMap::utf8Fold(0, piece(text), sink, nullptr, status);
    requireFolding(status);
    return result;
}

char asciiLower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }
char asciiUpper(char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; }

} // namespace

bool isASCII(std::string_view text) noexcept {
    constexpr std::uint64_t kHighBits = 0x8080808080808080U;
    std::size_t index = 0;
    for (std::uint64_t word = 0; index + sizeof(word) <= text.size(); index += sizeof(word)) {
        std::memcpy(&word, text.data() + index, sizeof(word));
        if ((word & kHighBits) != 0) {
            return false;
        }
    }
    return std::ranges::all_of(text.substr(index),
                               [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

std::string folded(std::string_view text, Modifiers modifiers) {
    if (isASCII(text)) {
        std::string result(text);
        if (modifiers.fold() && modifiers.caseInsensitive) {
            std::ranges::transform(result, result.begin(), asciiLower);
        }
        return result;
    }
    std::string result = canonicallyDecomposed(text);
    if (!modifiers.fold()) {
        return result;
    }
    std::string usual;
    usual.reserve(result.size());
    for (std::size_t index = 0; index < result.size();) {
        const char32_t point = decodeUTF8(result, index);
        if (!modifiers.diacriticInsensitive || !isDiacritic(point)) {
            appendUTF8(usual, usualWidth(point));
        }
    }
    return canonicallyDecomposed(modifiers.caseInsensitive ? caseFolded(usual) : usual);
}

std::string lowercased(std::string_view text) {
    std::string result;
    if (isASCII(text)) {
        std::ranges::transform(text, std::back_inserter(result), asciiLower);
        return result;
    }
    UErrorCode status = U_ZERO_ERROR;
    Sink sink(&result);
    icu::CaseMap::utf8ToLower("", 0, piece(text), sink, nullptr, status);
    requireFolding(status);
    return result;
}

std::string uppercased(std::string_view text) {
    std::string result;
    if (isASCII(text)) {
        std::ranges::transform(text, std::back_inserter(result), asciiUpper);
        return result;
    }
    UErrorCode status = U_ZERO_ERROR;
    Sink sink(&result);
    icu::CaseMap::utf8ToUpper("", 0, piece(text), sink, nullptr, status);
    requireFolding(status);
    return result;
}

std::size_t utf16Length(std::string_view text) noexcept {
    std::size_t length = 0;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        length += (byte & 0xC0U) != 0x80U ? 1 : 0;
        length += byte >= 0xF0 ? 1 : 0;
    }
    return length;
}

bool beginsWithMark(std::string_view text) noexcept {
    if (text.empty() || static_cast<unsigned char>(text.front()) < 0x80) {
        return false;
    }
    std::size_t index = 0;
    return u_getCombiningClass(static_cast<UChar32>(decodeUTF8(text, index))) != 0;
}

} // namespace qv::predicate
