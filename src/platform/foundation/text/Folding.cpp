#include "platform/foundation/text/Folding.h"

#include "platform/foundation/text/CharacterFolding.h"
#include "platform/foundation/text/Decomposition.h"
#include "platform/foundation/text/UTF16.h"

#include <unicode/normalizer2.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>

#include <algorithm>
#include <new>

namespace qv {

namespace {

using Options = StringCompareOptions;

icu::UnicodeString decomposed(const icu::UnicodeString& text) {
    UErrorCode status = U_ZERO_ERROR;
    const icu::Normalizer2* normalizer = icu::Normalizer2::getNFDInstance(status);
    icu::UnicodeString result;
    if (normalizer != nullptr) { // compiled into the library: fails for want of memory only
        result = normalizer->normalize(text, status);
    }
    if (U_FAILURE(status) != 0) {
        throw std::bad_alloc();
    }
    return result;
}

// Passes every character of a text through a change, which may take it out.
template <typename Change>
icu::UnicodeString changed(const icu::UnicodeString& text, const Change& change) {
    icu::UnicodeString result;
    for (std::int32_t index = 0; index < text.length(); index = text.moveIndex32(index, 1)) {
        change(result, static_cast<char32_t>(text.char32At(index)));
    }
    return result;
}

icu::UnicodeString ofUsualWidth(const icu::UnicodeString& text) {
    return changed(text, [](icu::UnicodeString& result, char32_t character) {
        result += static_cast<UChar32>(usualWidth(character));
    });
}

icu::UnicodeString withoutDiacritics(const icu::UnicodeString& text) {
    return changed(text, [](icu::UnicodeString& result, char32_t character) {
        if (!isDiacritic(character)) {
            result += static_cast<UChar32>(character);
        }
    });
}

char16_t foldedASCII(char16_t unit, Options options) {
    const bool lower = hasOption(options, Options::caseInsensitive) && unit >= u'A' && unit <= u'Z';
    return lower ? static_cast<char16_t>(unit + (u'a' - u'A')) : unit;
}

void appendFolded(std::u16string& out, std::u16string_view character, Options options) {
    if (character.size() == 1 && character.front() < 0x80) {
        out += foldedASCII(character.front(), options);
        return;
    }
    const bool decompose =
        !hasOption(options, Options::literal) || hasOption(options, Options::diacriticInsensitive);
    icu::UnicodeString text(character.data(), static_cast<std::int32_t>(character.size()));
    if (decompose) {
        text = decomposed(text);
    }
    if (hasOption(options, Options::widthInsensitive)) {
        text = ofUsualWidth(text);
    }
    if (hasOption(options, Options::diacriticInsensitive)) {
        text = withoutDiacritics(text);
    }
    if (hasOption(options, Options::caseInsensitive)) {
        text.foldCase();
    }
    if (decompose) { // characters that the folding of case and width gave may be composed again
        text = decomposed(text);
    }
    out.append(text.getBuffer(), static_cast<std::size_t>(text.length()));
}

// The offset behind the character that begins at `begin`.
std::size_t endOfCharacter(std::u16string_view text, std::size_t begin) {
    std::size_t end = begin;
    static_cast<void>(decodeUTF16(text, end));
    for (std::size_t marks = 0; marks < kMostMarks && end < text.size(); ++marks) {
        std::size_t next = end;
        const char32_t point = decodeUTF16(text, next);
        if (point < 0x300 || u_getCombiningClass(static_cast<UChar32>(point)) == 0) {
            break;
        }
        end = next;
    }
    return end;
}

} // namespace

FoldedText foldedText(std::u16string_view text, Options options) {
    FoldedText result;
    constexpr Options kFolds =
        Options::caseInsensitive | Options::diacriticInsensitive | Options::widthInsensitive;
    const bool literal = hasOption(options, Options::literal);
    if (literal && !hasOption(options, kFolds)) {
        result.units = text;
        return result;
    }
    if (std::ranges::all_of(text, [](char16_t unit) { return unit < 0x80; })) {
        result.units.resize(text.size());
        std::ranges::transform(text, result.units.begin(),
                               [&](char16_t unit) { return foldedASCII(unit, options); });
        return result;
    }
    result.units.reserve(text.size());
    result.boundaries.reserve(text.size() + 1);
    for (std::size_t at = 0; at < text.size();) {
        result.boundaries.push_back({at, result.units.size()});
        std::size_t end = at;
        if (literal) {
            static_cast<void>(decodeUTF16(text, end));
        } else {
            end = endOfCharacter(text, at);
        }
        appendFolded(result.units, text.substr(at, end - at), options);
        at = end;
    }
    result.boundaries.push_back({text.size(), result.units.size()});
    return result;
}

} // namespace qv
