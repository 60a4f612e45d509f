#pragma once

#include "platform/predicate/evaluation/Budget.h"
#include "platform/predicate/language/Expression.h"

#include <compare>
#include <string_view>

namespace qv::predicate {

// Comparisons of texts in UTF-8, as the modifiers ask.

/// Compares the characters if there are no modifiers: a composed character differs from a
/// decomposed one.
[[nodiscard]] bool textIsEqual(std::string_view left, std::string_view right, Modifiers modifiers,
                               Budget& budget);

/// The order by UTF-16 units of the decomposed text.
[[nodiscard]] std::strong_ordering textOrder(std::string_view left, std::string_view right,
                                             Modifiers modifiers, Budget& budget);

/// The order by the root collation; the modifiers take out case and accents. In Collation.cpp.
[[nodiscard]] std::strong_ordering orderOfCollation(std::string_view left, std::string_view right,
                                                    Modifiers modifiers, Budget& budget);

enum class Anchor : std::uint8_t { begin, end, none };

/// Whether `wanted` is found in `text`; an empty text is never found. Canonically equivalent texts
/// count as the same, and a letter is not found in a letter with an accent.
[[nodiscard]] bool textIsFound(std::string_view text, std::string_view wanted, Anchor anchor,
                               Modifiers modifiers, Budget& budget);

/// LIKE: `?` is one character, `*` any number of them, a backslash takes their meaning away.
[[nodiscard]] bool textIsLike(std::string_view text, std::string_view pattern, Modifiers modifiers,
                              Budget& budget);

/// MATCHES: whether the whole text matches a regular expression; an empty one matches nothing.
/// Throws an Exception for a bad expression.
[[nodiscard]] bool textMatches(std::string_view text, std::string_view pattern, Modifiers modifiers,
                               Budget& budget);

} // namespace qv::predicate
