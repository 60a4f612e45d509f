#pragma once

#include "platform/predicate/language/Expression.h"

#include <compare>
#include <span>

namespace qv::predicate {

// Numbers are integers while all that goes in is (booleans count as such) and reals otherwise. An
// operand that is not a number throws an Exception, and so does an integer beyond 64 bits.

[[nodiscard]] Value calculate(Arithmetic operation, const Value& left, const Value& right);
[[nodiscard]] Value negative(const Value& number);
/// The sign of `dividend` stays: -7 by 2 leaves -1.
[[nodiscard]] Value remainder(const Value& dividend, const Value& divisor);

/// Compares by value whatever the kinds, exactly; unordered with not-a-number. Needs two numbers.
[[nodiscard]] std::partial_ordering orderOfNumbers(const Value& left, const Value& right) noexcept;

[[nodiscard]] Value sumOf(std::span<const Value> numbers);
[[nodiscard]] double averageOf(std::span<const Value> numbers); ///< needs one at least

/// The number itself as a real. `what` is named in the reason of the exception.
[[nodiscard]] double realOf(const Value& number, std::string_view what);

} // namespace qv::predicate
