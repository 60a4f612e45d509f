#pragma once

#include "platform/applescript/values/Terms.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace qv::applescript {

/// A word that the grammar or a term knows. Those that only terms have follow the enumerators.
enum class Word : std::uint16_t {
    none,
    // Reserved: never the name of a variable.
    about,
    above,
    after,
    against,
    and_,
    around,
    as,
    at,
    back,
    before,
    beginning,
    behind,
    below,
    beneath,
    beside,
    between,
    but,
    by,
    considering,
    contain,
    contains,
    continue_,
    copy,
    div,
    does,
    doesnt,
    else_,
    end,
    equal,
    equals,
    error,
    every,
    exit,
    first,
    second,
    third,
    fourth,
    fifth,
    sixth,
    seventh,
    eighth,
    ninth,
    tenth,
    for_,
    from,
    front,
    given,
    global,
    if_,
    ignoring,
    in,
    into,
    is,
    isnt,
    it,
    its,
    last,
    local,
    me,
    middle,
    mod,
    my,
    not_,
    of,
    on,
    onto,
    or_,
    over,
    property,
    prop,
    ref,
    repeat,
    return_,
    script,
    set,
    since,
    some,
    tell,
    the,
    then,
    through,
    thru,
    to,
    try_,
    under,
    until,
    using_,
    where,
    while_,
    whose,
    with,
    without,
    // Words from here on are reserved in some places only.
    lastReserved,
    apart,
    aside,
    instead,
    out,
    begins,
    begin,
    comes,
    starts,
    start,
    ends,
    use,
    a,
    an,
    app,
    application,
    applescript,
    clipboard,
    come,
    contained,
    framework,
    greater,
    id,
    index,
    less,
    named,
    number,
    partial,
    reference,
    responses,
    result,
    running,
    scripting,
    seconds,
    terms,
    than,
    timeout,
    times,
    transaction,
    version,
    volume,
    end_, ///< the number of the words
};

/// A term in words, in the singular or plural.
struct Phrase {
    static constexpr std::size_t kMostWords = 4;
    const TermInfo* info = nullptr;
    bool isPlural = false;
    std::array<Word, kMostWords> words{};
    std::size_t length = 0;
};

/// All words of the language, made once.
class Vocabulary {
public:
    static const Vocabulary& shared();

    /// `lower`: in lower case. Word::none for a name of the script's own.
    [[nodiscard]] Word wordOf(std::string_view lower) const noexcept;
    /// The terms that begin with a word, the longest first.
    [[nodiscard]] std::span<const Phrase> phrasesOf(Word first) const noexcept;
    [[nodiscard]] static bool isReserved(Word word) noexcept {
        return word != Word::none && word < Word::lastReserved;
    }

private:
    Vocabulary();
    Word add(std::string_view lower);
    void addPhrase(const TermInfo& info, std::string_view words, bool isPlural);

    std::unordered_map<std::string, Word> words_;
    std::vector<std::vector<Phrase>> phrases_; // by the first word
};

/// A label of a handler's parameter that is a word of the language.
struct Preposition {
    std::string_view label;
    std::array<Word, 2> words;
};
[[nodiscard]] std::span<const Preposition> prepositions() noexcept;
[[nodiscard]] bool isPreposition(std::string_view label) noexcept;
/// Returns true for the names of handlers that need no parentheses: `on quit`.
[[nodiscard]] bool isEventName(std::string_view lower) noexcept;

/// A name in lower case: names are the same whatever their case.
[[nodiscard]] std::string lowered(std::string_view name);
[[nodiscard]] bool isNameStart(char32_t point) noexcept;
[[nodiscard]] bool isNamePart(char32_t point) noexcept;

} // namespace qv::applescript
