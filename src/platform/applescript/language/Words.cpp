#include "platform/applescript/language/Words.h"

#include "platform/foundation/values/ASCII.h"
#include "platform/foundation/values/UTF8.h"

#include <unicode/uchar.h>

#include <algorithm>

namespace qv::applescript {

namespace {

// The words in the order of the enumeration.
constexpr auto kWords = std::to_array<std::string_view>({
    "",          "about",     "above",     "after",       "against",     "and",         "around",
    "as",        "at",        "back",      "before",      "beginning",   "behind",      "below",
    "beneath",   "beside",    "between",   "but",         "by",          "considering", "contain",
    "contains",  "continue",  "copy",      "div",         "does",        "doesn't",     "else",
    "end",       "equal",     "equals",    "error",       "every",       "exit",        "first",
    "second",    "third",     "fourth",    "fifth",       "sixth",       "seventh",     "eighth",
    "ninth",     "tenth",     "for",       "from",        "front",       "given",       "global",
    "if",        "ignoring",  "in",        "into",        "is",          "isn't",       "it",
    "its",       "last",      "local",     "me",          "middle",      "mod",         "my",
    "not",       "of",        "on",        "onto",        "or",          "over",        "property",
    "prop",      "ref",       "repeat",    "return",      "script",      "set",         "since",
    "some",      "tell",      "the",       "then",        "through",     "thru",        "to",
    "try",       "under",     "until",     "using",       "where",       "while",       "whose",
    "with",      "without",   "",          "apart",       "aside",       "instead",     "out",
    "begins",    "begin",     "comes",     "starts",      "start",       "ends",        "use",
    "a",         "an",        "app",       "application", "applescript", "clipboard",   "come",
    "contained", "framework", "greater",   "id",          "index",       "less",        "named",
    "number",    "partial",   "reference", "responses",   "result",      "running",     "scripting",
    "seconds",   "terms",     "than",      "timeout",     "times",       "transaction", "version",
    "volume",
});
static_assert(kWords.size() == static_cast<std::size_t>(Word::end_));

// Other spellings of terms.
struct Spelling {
    Term term;
    std::string_view words;
};
constexpr Spelling kSpellings[] = {
    {Term::emptyTrash, "empty the trash"},
    {Term::emptyTrash, "empty"},
    {Term::application, "app"},
    {Term::temporaryItems, "temporary items folder"},
    {Term::applicationSupport, "application support folder"},
    {Term::preferencesFolder, "preferences"},
    {Term::trash, "trash folder"},
};

// The prepositions, apart from `given` and the names behind it.
constexpr auto kPrepositions = std::to_array<Preposition>({
    {"about", {Word::about}},
    {"above", {Word::above}},
    {"against", {Word::against}},
    {"apart from", {Word::apart, Word::from}},
    {"around", {Word::around}},
    {"aside from", {Word::aside, Word::from}},
    {"at", {Word::at}},
    {"below", {Word::below}},
    {"beneath", {Word::beneath}},
    {"beside", {Word::beside}},
    {"between", {Word::between}},
    {"by", {Word::by}},
    {"for", {Word::for_}},
    {"from", {Word::from}},
    {"instead of", {Word::instead, Word::of}},
    {"into", {Word::into}},
    {"on", {Word::on}},
    {"onto", {Word::onto}},
    {"out of", {Word::out, Word::of}},
    {"over", {Word::over}},
    {"since", {Word::since}},
    {"thru", {Word::thru}},
    {"thru", {Word::through}},
    {"to", {Word::to}},
    {"under", {Word::under}},
});

// Handlers of events, which need no parentheses.
constexpr auto kEvents = std::to_array<std::string_view>(
    {"run", "quit", "idle", "open", "reopen", "activate", "launch", "print", "close"});

} // namespace

Vocabulary::Vocabulary() {
    for (std::size_t index = 0; index < kWords.size(); ++index) {
        if (!kWords[index].empty()) {
            words_.emplace(kWords[index], static_cast<Word>(index));
        }
    }
    phrases_.resize(kWords.size());
    for (const TermInfo& info : terms()) {
        addPhrase(info, info.words, false);
        if (!info.plural.empty()) {
            addPhrase(info, info.plural, true);
        }
    }
    for (const Spelling& spelling : kSpellings) {
        addPhrase(infoOf(spelling.term), spelling.words, false);
    }
    for (std::vector<Phrase>& phrases : phrases_) {
        std::ranges::sort(phrases, std::ranges::greater{}, &Phrase::length);
    }
}

const Vocabulary& Vocabulary::shared() {
    static const Vocabulary kVocabulary;
    return kVocabulary;
}

Word Vocabulary::wordOf(std::string_view lower) const noexcept {
    static constexpr std::size_t kLongest = 24;
    if (lower.size() > kLongest) {
        return Word::none;
    }
    const auto found = words_.find(std::string(lower));
    return found == words_.end() ? Word::none : found->second;
}

std::span<const Phrase> Vocabulary::phrasesOf(Word first) const noexcept {
    return phrases_[static_cast<std::size_t>(first)];
}

Word Vocabulary::add(std::string_view lower) {
    const auto [place, isNew] = words_.emplace(lower, static_cast<Word>(phrases_.size()));
    if (isNew) {
        phrases_.emplace_back();
    }
    return place->second;
}

void Vocabulary::addPhrase(const TermInfo& info, std::string_view words, bool isPlural) {
    Phrase phrase{.info = &info, .isPlural = isPlural};
    for (std::size_t begin = 0; begin < words.size();) {
        const std::size_t end = std::min(words.find(' ', begin), words.size());
        phrase.words.at(phrase.length++) = add(lowered(words.substr(begin, end - begin)));
        begin = end + 1;
    }
    phrases_[static_cast<std::size_t>(phrase.words.front())].push_back(phrase);
}

std::span<const Preposition> prepositions() noexcept { return kPrepositions; }

bool isPreposition(std::string_view label) noexcept {
    return std::ranges::find(kPrepositions, label, &Preposition::label) != std::end(kPrepositions);
}

bool isEventName(std::string_view lower) noexcept {
    return std::ranges::find(kEvents, lower) != std::end(kEvents);
}

std::string lowered(std::string_view name) {
    std::string result;
    result.reserve(name.size());
    for (std::size_t index = 0; index < name.size();) {
        if (const char c = name[index]; static_cast<unsigned char>(c) < 0x80) {
            result += c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
            ++index;
        } else {
            const auto point = static_cast<UChar32>(decodeUTF8(name, index));
            appendUTF8(result, static_cast<char32_t>(u_tolower(point)));
        }
    }
    return result;
}

bool isNameStart(char32_t point) noexcept {
    return point < 0x80 ? isLetter(static_cast<char>(point)) || point == '_'
                        : u_isalpha(static_cast<UChar32>(point)) != 0;
}

bool isNamePart(char32_t point) noexcept {
    if (point < 0x80) {
        return isLetterOrDigit(static_cast<char>(point)) || point == '_';
    }
    const auto character = static_cast<UChar32>(point);
    return u_isalnum(character) != 0 || u_charType(character) == U_NON_SPACING_MARK;
}

} // namespace qv::applescript
