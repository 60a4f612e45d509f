#pragma once

#include "platform/applescript/running/Context.h"
#include "platform/applescript/values/Numbers.h"

#include <optional>
#include <string>
#include <string_view>

namespace qv::applescript {

/// `value as type`; -1700 if it cannot be.
[[nodiscard]] ScriptValue coerced(const ScriptValue& value, Term type, const Context& context);
/// Returns none if it cannot be.
[[nodiscard]] std::optional<ScriptValue> tryCoerced(const ScriptValue& value, Term type,
                                                    const Context& context);

/// The text of a value; -1700 if it has none.
[[nodiscard]] std::string textOf(const ScriptValue& value, const Context& context);
/// A number, of a number, a text, a month, a weekday or a list of one; -1700 for anything else.
[[nodiscard]] ScriptValue numberOf(const ScriptValue& value, const Context& context);
/// An integer, rounded to the nearest one; -1700.
[[nodiscard]] std::int64_t integerOf(const ScriptValue& value, const Context& context);
/// A condition: -1700 for what is not a boolean.
[[nodiscard]] bool booleanOf(const ScriptValue& value, const Context& context);

/// The class of a value, as `class of` gives it.
[[nodiscard]] Term classOf(const ScriptValue& value) noexcept;
/// Whether the two name one class: `text`, `string` and `Unicode text` do.
[[nodiscard]] bool sameClass(Term left, Term right) noexcept;
/// Whether a value belongs to a class: an integer is a number as well.
[[nodiscard]] bool isOfClass(const ScriptValue& value, Term type) noexcept;

/// A copy of which no part is shared; -2706 for a value nested too deep.
[[nodiscard]] ScriptValue deepCopy(const ScriptValue& value, const Context& context,
                                   unsigned depth = 0);

} // namespace qv::applescript
