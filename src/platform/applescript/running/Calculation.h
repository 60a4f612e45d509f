#pragma once

#include "platform/applescript/running/Context.h"

namespace qv::applescript {

/// `+ - * / div mod ^` of numbers, of values that can be made into one, and of dates: -1700, -2701
/// for a division by zero, -2702 for a result that is too large.
[[nodiscard]] ScriptValue calculated(BinaryOperator operation, const ScriptValue& left,
                                     const ScriptValue& right, const Context& context);
[[nodiscard]] ScriptValue negated(const ScriptValue& value, const Context& context);

/// `&`: texts are joined; records too, the left one's fields first; anything else becomes a list.
[[nodiscard]] ScriptValue concatenated(const ScriptValue& left, const ScriptValue& right,
                                       const Context& context);

/// `round`, with the constant after `rounding`; without one to the nearest number, halves to the
/// even one.
[[nodiscard]] ScriptValue rounded(const ScriptValue& number, Term direction,
                                  const Context& context);

} // namespace qv::applescript
