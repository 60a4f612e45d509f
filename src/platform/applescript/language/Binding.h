#pragma once

#include "platform/applescript/language/Operators.h"
#include "platform/applescript/language/Tree.h"

namespace qv::applescript {

// The positions of nodes in a source: the printer writes their parentheses, and the parser counts
// them.

/// A literal of a kind, or null.
[[nodiscard]] const Literal* asLiteral(const Node* node, ScriptValue::Kind kind) noexcept;
/// `first item` rather than `item 1`.
[[nodiscard]] bool isOrdinal(const Element& element) noexcept;
/// Whether `whose` behind the reference would be about this part of it.
[[nodiscard]] bool isFiltered(const Node* node) noexcept;
[[nodiscard]] const Node* filterOf(const Node* node) noexcept;
[[nodiscard]] bool isMe(const Node* node) noexcept;
/// `AppleScript's text item delimiters`.
[[nodiscard]] bool isDelimiters(const Node* node) noexcept;
/// The container behind `of`, or null.
[[nodiscard]] const Node* containerOf(const Node* node) noexcept;
/// A part of a reference that has a container.
[[nodiscard]] bool isLink(const Node* node) noexcept;
/// A reference with a condition at its end.
[[nodiscard]] bool endsOpen(const Node* node) noexcept;
/// `date "..."`.
[[nodiscard]] bool isDateOfText(const Coercion& node) noexcept;
/// Commands and open references take all that follows.
[[nodiscard]] bool takesAll(const Node* node) noexcept;
[[nodiscard]] Level bindingOf(const Node* node) noexcept;
/// Whether it needs parentheses where an operator binds as tightly as `least`.
[[nodiscard]] inline bool isLoose(const Node* node, Level least) noexcept {
    return takesAll(node) || bindingOf(node) < least;
}

} // namespace qv::applescript
