#include "platform/applescript/running/TextElements.h"

#include "platform/applescript/running/Failure.h"
#include "platform/foundation/text/TextSearch.h"
#include "platform/foundation/text/UTF16.h"
#include "platform/foundation/values/UTF8.h"

#include <unicode/brkiter.h>
#include <unicode/ubrk.h>
#include <unicode/utext.h>

#include <algorithm>
#include <array>
#include <limits>
#include <memory>

namespace qv::applescript {

namespace {

bool isASCIIOnly(std::string_view text) noexcept {
    return std::ranges::all_of(text, [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

char lowered(char c) noexcept { return c >= 'A' && c <= 'Z' ? static_cast<char>(c | 0x20) : c; }

// Tells `found` each match in order, until it answers that it has enough. Every byte is looked at
// twice at most: where a match fails, `shorter` tells how much of it is the begin of another one.
template <typename Found>
void findASCII(std::string_view text, std::string_view wanted, bool considersCase,
               const Found& found) {
    const auto isSame = [considersCase](char left, char right) {
        return considersCase ? left == right : lowered(left) == lowered(right);
    };
    const HeldBytes held((wanted.size() + 1) * sizeof(std::uint32_t));
    std::vector<std::uint32_t> shorter(wanted.size() + 1);
    const auto advanced = [&](std::size_t matched, char next) -> std::size_t {
        while (matched != 0 && (matched == wanted.size() || !isSame(wanted[matched], next))) {
            matched = shorter[matched];
        }
        return matched + (isSame(wanted[matched], next) ? 1U : 0U);
    };
    for (std::size_t i = 1; i < wanted.size(); ++i) {
        shorter[i + 1] = static_cast<std::uint32_t>(advanced(shorter[i], wanted[i]));
    }
    std::size_t matched = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        matched = advanced(matched, text[i]);
        if (matched == wanted.size()) {
            if (found(TextSpan{i + 1 - matched, i + 1})) {
                return;
            }
            matched = 0; // matches do not overlap
        }
    }
}

// Matches come in order, so that one walk over the text tells their places in bytes.
template <typename Found>
void findAny(std::string_view text, std::string_view wanted, const Context& context,
             const Found& found) {
    constexpr std::size_t kBytesPerByte = 24; // of the search's own tables
    const HeldBytes held((text.size() + wanted.size()) * kBytesPerByte);
    const std::u16string units = utf16FromUTF8(text);
    auto options = StringCompareOptions::none;
    if (!context.considers(Attention::kCase)) {
        options = options | StringCompareOptions::caseInsensitive;
    }
    if (!context.considers(Attention::kDiacriticals)) {
        options = options | StringCompareOptions::diacriticInsensitive;
    }
    TextSearch search(units, utf16FromUTF8(wanted), options);
    std::size_t byte = 0;
    std::size_t unit = 0;
    const auto byteAt = [&](std::uint64_t place) {
        while (unit < place) {
            unit += decodeUTF8(text, byte) > 0xFFFF ? 2U : 1U;
        }
        return byte;
    };
    for (std::uint64_t from = 0; from < units.size();) {
        const auto match = search.find(from, units.size());
        if (!match || match->length == 0) {
            return;
        }
        const std::size_t begin = byteAt(match->location);
        from = match->location + match->length;
        if (found(TextSpan{begin, byteAt(from)})) {
            return;
        }
    }
}

template <typename Found>
void find(std::string_view text, bool isASCII, std::string_view wanted, const Context& context,
          const Found& found) {
    context.bounds.bytes(text.size());
    if (wanted.empty()) {
        return;
    }
    if (isASCII && isASCIIOnly(wanted)) {
        findASCII(text, wanted, context.considers(Attention::kCase), found);
    } else {
        findAny(text, wanted, context, found);
    }
}

void addParagraphs(std::string_view text, TextSpans& spans) {
    std::size_t begin = 0;
    for (std::size_t i = 0; i < text.size();) {
        std::size_t length = 0;
        if (text[i] == '\r' || text[i] == '\n') {
            length = text.substr(i).starts_with("\r\n") ? 2 : 1;
        } else if (text.substr(i).starts_with("\u2028") || text.substr(i).starts_with("\u2029")) {
            length = 3;
        }
        if (length != 0) {
            spans.add({begin, i});
            begin = i + length;
        }
        i += std::max<std::size_t>(length, 1);
    }
    spans.add({begin, text.size()});
}

struct CloseText {
    void operator()(UText* text) const noexcept { utext_close(text); }
};

// A line end of two characters is two.
void addCharacter(std::string_view text, TextSpan span, TextSpans& spans) {
    if (text.substr(span.begin, span.end - span.begin) == "\r\n") {
        spans.add({span.begin, span.begin + 1});
        ++span.begin;
    }
    spans.add(span);
}

void addByLibrary(std::string_view text, bool areWords, TextSpans& spans) {
    UErrorCode status = U_ZERO_ERROR;
    const std::unique_ptr<UText, CloseText> opened(
        utext_openUTF8(nullptr, text.data(), static_cast<std::int64_t>(text.size()), &status));
    std::unique_ptr<icu::BreakIterator> breaks(
        areWords ? icu::BreakIterator::createWordInstance(icu::Locale::getRoot(), status)
                 : icu::BreakIterator::createCharacterInstance(icu::Locale::getRoot(), status));
    if (U_FAILURE(status) == 0) {
        breaks->setText(opened.get(), status);
    }
    if (U_FAILURE(status) != 0) {
        return;
    }
    auto begin = static_cast<std::size_t>(breaks->first());
    for (std::int32_t next = breaks->next(); next != icu::BreakIterator::DONE;
         next = breaks->next()) {
        const TextSpan span{begin, static_cast<std::size_t>(next)};
        begin = span.end;
        if (!areWords) {
            addCharacter(text, span, spans);
        } else if (breaks->getRuleStatus() >= UBRK_WORD_NONE_LIMIT) {
            spans.add(span);
        }
    }
}

bool cutsNowhere(const Context& context) noexcept {
    return std::ranges::all_of(context.delimiterTexts, [](const ScriptValue& delimiter) {
        return delimiter.asText().empty();
    });
}

void addTextItems(std::string_view text, const Context& context, TextSpans& spans) {
    TextSpans delimiters;
    findOccurrences(text, context.delimiterTexts, context, delimiters);
    std::size_t begin = 0;
    for (const TextSpan& delimiter : delimiters.all()) {
        spans.add({begin, delimiter.begin});
        begin = delimiter.end;
    }
    spans.add({begin, text.size()});
}

/// Whether each character of the text is a byte and an element.
bool isByteWise(const ScriptValue& text, Term type, const Context& context) {
    const bool isCharacter = type == Term::character || type == Term::text || type == Term::item;
    return (isCharacter || (type == Term::textItem && cutsNowhere(context))) && text.isASCII();
}

} // namespace

void TextSpans::add(TextSpan span) {
    constexpr std::size_t kFirst = 16;
    if (all_.size() == all_.capacity()) {
        const std::size_t before = all_.capacity();
        const std::size_t wanted = std::max(kFirst, 2 * before);
        ScriptValue::expectBytes(wanted * sizeof(TextSpan)); // as long as both are there
        all_.reserve(wanted);
        held_.grow((wanted - before) * sizeof(TextSpan));
    }
    all_.push_back(span);
}

void TextSpans::clear() noexcept {
    all_ = {};
    held_.release();
}

void findOccurrences(std::string_view text, const std::vector<ScriptValue>& wanted,
                     const Context& context, TextSpans& found) {
    const bool isASCII = isASCIIOnly(text);
    for (const ScriptValue& each : wanted) {
        find(text, isASCII, each.asText(), context, [&](TextSpan span) {
            found.add(span);
            return false;
        });
    }
    if (wanted.size() < 2) {
        return;
    }
    std::vector<TextSpan>& all = found.all();
    std::ranges::sort(all, [](const TextSpan& left, const TextSpan& right) {
        return left.begin != right.begin ? left.begin < right.begin : left.end > right.end;
    });
    std::size_t end = 0;
    std::erase_if(all, [&end](const TextSpan& span) {
        const bool overlaps = span.begin < end;
        end = overlaps ? end : span.end;
        return overlaps;
    });
}

std::optional<TextSpan> firstOccurrence(std::string_view text, std::string_view wanted,
                                        const Context& context) {
    std::optional<TextSpan> first;
    find(text, isASCIIOnly(text), wanted, context, [&](TextSpan span) {
        first = span;
        return true;
    });
    return first;
}

bool endsWithText(std::string_view text, std::string_view wanted, const Context& context) {
    std::size_t end = 0;
    find(text, isASCIIOnly(text), wanted, context, [&](TextSpan span) {
        end = span.end;
        return false;
    });
    return !wanted.empty() && end == text.size() && end != 0;
}

bool TextElements::has(Term type) noexcept {
    static constexpr auto kTypes = std::to_array(
        {Term::character, Term::item, Term::text, Term::word, Term::paragraph, Term::textItem});
    return std::ranges::find(kTypes, type) != kTypes.end();
}

std::size_t TextElements::count(const ScriptValue& text, Term type) {
    return isByteWise(text, type, context_) ? text.asText().size() : spans(text, type).size();
}

TextSpan TextElements::at(const ScriptValue& text, Term type, std::size_t index) {
    return isByteWise(text, type, context_) ? TextSpan{index, index + 1} : spans(text, type)[index];
}

std::size_t TextElements::countBefore(const ScriptValue& text, Term type, std::size_t byte) {
    if (isByteWise(text, type, context_)) {
        return byte;
    }
    const std::vector<TextSpan>& all = spans(text, type);
    return static_cast<std::size_t>(std::ranges::lower_bound(all, byte, {}, &TextSpan::begin) -
                                    all.begin());
}

void TextElements::forget() {
    text_ = ScriptValue();
    type_ = Term::none;
    spans_.clear();
}

const std::vector<TextSpan>& TextElements::spans(const ScriptValue& text, Term type) {
    if (type_ == type && text_.sameAs(text)) {
        return spans_.all();
    }
    forget();
    context_.bounds.bytes(text.asText().size());
    constexpr std::size_t kLongest = std::numeric_limits<std::int32_t>::max();
    if (text.asText().size() > kLongest) {
        fail(error_number::kOutOfMemory, "Out of memory.");
    }
    const std::string& content = text.asText();
    switch (type) {
    case Term::word:
        addByLibrary(content, true, spans_);
        break;
    case Term::paragraph:
        addParagraphs(content, spans_);
        break;
    case Term::textItem:
        if (!cutsNowhere(context_)) {
            addTextItems(content, context_, spans_);
            break;
        }
        [[fallthrough]];
    default:
        addByLibrary(content, false, spans_);
    }
    text_ = text;
    type_ = type;
    return spans_.all();
}

} // namespace qv::applescript
