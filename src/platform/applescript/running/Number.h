#pragma once

#include "platform/applescript/running/Coercions.h"

#include <cmath>

namespace qv::applescript {

/// A sum, difference or product of numbers in registers.
struct Number {
    enum class Kind : std::uint8_t {
        none, ///< no number, or a case that needs a second look
        integer,
        real,
    };
    Kind kind = Kind::none;
    std::int64_t integer = 0;
    double real = 0;
};

inline Number quickNumber(BinaryOperator operation, const ScriptValue& left,
                          const ScriptValue& right) noexcept {
    // Factors below this have a product that is an integer as well.
    constexpr std::int64_t kSmall = 1LL << 31U;
    if (operation > BinaryOperator::multiply || !left.isNumber() || !right.isNumber()) {
        return {};
    }
    if (left.is(ScriptValue::Kind::integer) && right.is(ScriptValue::Kind::integer)) {
        const std::int64_t one = left.asInteger();
        const std::int64_t other = right.asInteger();
        if (one >= kSmall || one <= -kSmall || other >= kSmall || other <= -kSmall) {
            return {};
        }
        const std::int64_t value = operation == BinaryOperator::add        ? one + other
                                   : operation == BinaryOperator::subtract ? one - other
                                                                           : one * other;
        if (value >= -kMostInteger && value <= kMostInteger) {
            return {Number::Kind::integer, value, 0};
        }
        return {Number::Kind::real, 0, static_cast<double>(value)};
    }
    const double one = realOf(left);
    const double other = realOf(right);
    const double value = operation == BinaryOperator::add        ? one + other
                         : operation == BinaryOperator::subtract ? one - other
                                                                 : one * other;
    return {std::isfinite(value) ? Number::Kind::real : Number::Kind::none, 0, value};
}

} // namespace qv::applescript
