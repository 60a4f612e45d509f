#pragma once

#include "platform/predicate/language/Expression.h"

#include <string>
#include <string_view>

namespace qv::predicate {

// Texts are UTF-8. ICU is asked only where a text is not ASCII.

[[nodiscard]] bool isASCII(std::string_view text) noexcept;

/// The text, canonically decomposed and, as the modifiers ask, without case (full folding, so that
/// `ß` is `ss`) and diacritics; with either of them without character width too.
[[nodiscard]] std::string folded(std::string_view text, Modifiers modifiers);

[[nodiscard]] std::string lowercased(std::string_view text);
[[nodiscard]] std::string uppercased(std::string_view text);

/// Units of UTF-16 that the text has.
[[nodiscard]] std::size_t utf16Length(std::string_view text) noexcept;

/// Whether the text begins with a character that combines with the one before it.
[[nodiscard]] bool beginsWithMark(std::string_view text) noexcept;

} // namespace qv::predicate
