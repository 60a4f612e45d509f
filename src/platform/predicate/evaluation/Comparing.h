#pragma once

#include "platform/predicate/evaluation/Budget.h"
#include "platform/predicate/language/Expression.h"

#include <compare>

namespace qv::predicate {

/// Whether the operator holds between two values; the null object is nil. Throws an Exception for
/// values that it cannot compare. MATCHES and LIKE are in text/Patterns.h.
[[nodiscard]] bool compare(Comparison comparison, Modifiers modifiers, const Value& left,
                           const Value& right, Budget& budget);

[[nodiscard]] bool isEqual(const Value& left, const Value& right, Modifiers modifiers,
                           Budget& budget);

/// The order for `<` and similar operators, of two values that are not nil. Throws where there is
/// no order.
[[nodiscard]] std::partial_ordering order(const Value& left, const Value& right,
                                          Modifiers modifiers, Budget& budget);

} // namespace qv::predicate
