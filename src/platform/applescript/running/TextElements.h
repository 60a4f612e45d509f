#pragma once

#include "platform/applescript/running/Context.h"

#include <cstddef>
#include <optional>
#include <string_view>
#include <vector>

namespace qv::applescript {

/// A part of a text, in bytes.
struct TextSpan {
    std::size_t begin = 0;
    std::size_t end = 0;
};

/// Parts of a text, counted as they become more.
class TextSpans {
public:
    void add(TextSpan span);
    void clear() noexcept;
    [[nodiscard]] std::vector<TextSpan>& all() noexcept { return all_; }
    [[nodiscard]] const std::vector<TextSpan>& all() const noexcept { return all_; }

private:
    std::vector<TextSpan> all_;
    HeldBytes held_;
};

/// Adds where one of the texts stands in a text, as the context compares texts: what begins first,
/// of those the longest one. An empty text is not found.
void findOccurrences(std::string_view text, const std::vector<ScriptValue>& wanted,
                     const Context& context, TextSpans& found);
/// The first place where one text stands in another.
[[nodiscard]] std::optional<TextSpan>
firstOccurrence(std::string_view text, std::string_view wanted, const Context& context);
/// Whether a text ends with another.
[[nodiscard]] bool endsWithText(std::string_view text, std::string_view wanted,
                                const Context& context);

/// The parts of texts: characters as people see them, words, paragraphs and text items. Remembers
/// those of the text it was last asked about.
class TextElements {
public:
    explicit TextElements(const Context& context) : context_(context) {}

    /// Whether texts have such elements.
    [[nodiscard]] static bool has(Term type) noexcept;
    [[nodiscard]] std::size_t count(const ScriptValue& text, Term type);
    /// `index` counts from 0, below the count.
    [[nodiscard]] TextSpan at(const ScriptValue& text, Term type, std::size_t index);
    /// The number of elements that begin before a byte of the text.
    [[nodiscard]] std::size_t countBefore(const ScriptValue& text, Term type, std::size_t byte);
    /// Has to be called when the context changes.
    void forget();

private:
    const std::vector<TextSpan>& spans(const ScriptValue& text, Term type);

    const Context& context_;
    ScriptValue text_;
    Term type_ = Term::none;
    TextSpans spans_;
};

} // namespace qv::applescript
