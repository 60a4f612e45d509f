#include "platform/applescript/running/Calculation.h"

#include "platform/applescript/running/Coercions.h"
#include "platform/applescript/running/Dates.h"
#include "platform/applescript/running/Failure.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <string_view>
#include <unordered_set>

namespace qv::applescript {

namespace {

using Kind = ScriptValue::Kind;

void requireNotZero(const ScriptValue& left, const ScriptValue& right) {
    if (realOf(right) == 0) {
        ScriptError error;
        error.number = error_number::kDivideByZero;
        error.brief = "Can’t divide " + numberText(left) + " by zero.";
        error.offender = left;
        throwError(std::move(error));
    }
}

double finite(double value) {
    if (!std::isfinite(value)) {
        fail(error_number::kNumberTooLarge, "The result of a numeric operation was too large.");
    }
    return value;
}

ScriptValue calculatedDate(BinaryOperator operation, const ScriptValue& left,
                           const ScriptValue& right, const Context& context) {
    if (operation == BinaryOperator::subtract && right.is(Kind::date)) {
        return wholeNumber(left.asDate() - right.asDate());
    }
    if (operation != BinaryOperator::add && operation != BinaryOperator::subtract) {
        failToMake(left, Term::number, context);
    }
    const double seconds = realOf(numberOf(right, context));
    const double sum =
        operation == BinaryOperator::add ? left.asDate() + seconds : left.asDate() - seconds;
    if (!(std::abs(sum) <= kFarthestDate)) {
        fail(error_number::kNumberTooLarge, "The result of a numeric operation was too large.");
    }
    return ScriptValue::date(sum);
}

ScriptValue calculatedIntegers(BinaryOperator operation, std::int64_t left, std::int64_t right) {
    switch (operation) {
    case BinaryOperator::add:
        return wholeNumber(left + right);
    case BinaryOperator::subtract:
        return wholeNumber(left - right);
    case BinaryOperator::multiply:
        return wholeNumber(left * right);
    case BinaryOperator::integerDivide:
        return wholeNumber(left / right);
    default:
        return wholeNumber(left % right);
    }
}

ScriptValue calculatedReals(BinaryOperator operation, double left, double right) {
    switch (operation) {
    case BinaryOperator::add:
        return ScriptValue::real(finite(left + right));
    case BinaryOperator::subtract:
        return ScriptValue::real(finite(left - right));
    case BinaryOperator::multiply:
        return ScriptValue::real(finite(left * right));
    case BinaryOperator::divide:
        return ScriptValue::real(finite(left / right));
    case BinaryOperator::integerDivide:
        return wholeNumber(std::trunc(finite(left / right)));
    case BinaryOperator::power:
        return ScriptValue::real(finite(std::pow(left, right)));
    default:
        return ScriptValue::real(std::fmod(left, right));
    }
}

ScriptValue joinedRecords(const ScriptValue& left, const ScriptValue& right) {
    constexpr std::size_t kBytesOfAKey = 64; // in the set
    const std::size_t size = left.asRecord().size() + right.asRecord().size();
    const HeldBytes held(size * (sizeof(ScriptValue::Fields::value_type) + kBytesOfAKey));
    std::unordered_set<std::string_view> own;
    for (const auto& field : left.asRecord()) {
        own.insert(field.first);
    }
    ScriptValue::Fields fields;
    fields.reserve(size);
    fields.insert(fields.end(), left.asRecord().begin(), left.asRecord().end());
    std::ranges::copy_if(right.asRecord(), std::back_inserter(fields),
                         [&](const auto& field) { return !own.contains(field.first); });
    return ScriptValue::record(std::move(fields));
}

} // namespace

ScriptValue calculated(BinaryOperator operation, const ScriptValue& left, const ScriptValue& right,
                       const Context& context) {
    // Factors below this have a product that is an integer as well.
    constexpr std::int64_t kSmall = 1LL << 31U;
    if (left.is(Kind::date)) {
        return calculatedDate(operation, left, right, context);
    }
    const ScriptValue one = numberOf(left, context);
    const ScriptValue other = numberOf(right, context);
    if (operation == BinaryOperator::divide || operation == BinaryOperator::integerDivide ||
        operation == BinaryOperator::modulo) {
        requireNotZero(one, other);
    }
    const auto isSmall = [](const ScriptValue& value) {
        return value.is(Kind::integer) && std::abs(value.asInteger()) < kSmall;
    };
    const bool givesReal =
        operation == BinaryOperator::divide || operation == BinaryOperator::power;
    return isSmall(one) && isSmall(other) && !givesReal
               ? calculatedIntegers(operation, one.asInteger(), other.asInteger())
               : calculatedReals(operation, realOf(one), realOf(other));
}

ScriptValue negated(const ScriptValue& value, const Context& context) {
    const ScriptValue number = numberOf(value, context);
    return number.is(Kind::integer) ? wholeNumber(-number.asInteger())
                                    : ScriptValue::real(-number.asReal());
}

ScriptValue concatenated(const ScriptValue& left, const ScriptValue& right,
                         const Context& context) {
    if (left.is(Kind::text)) {
        const ScriptValue other = coerced(right, Term::text, context);
        ScriptValue::expectBytes(left.asText().size() + other.asText().size());
        context.bounds.bytes(left.asText().size() + other.asText().size());
        return ScriptValue::text(left.asText() + other.asText());
    }
    if (left.is(Kind::record) && right.is(Kind::record)) {
        return joinedRecords(left, right);
    }
    const ScriptValue one = coerced(left, Term::list, context);
    const ScriptValue other = coerced(right, Term::list, context);
    const std::size_t size = one.asList().size() + other.asList().size();
    ScriptValue::expectBytes(size * sizeof(ScriptValue));
    std::vector<ScriptValue> items;
    items.reserve(size);
    items.insert(items.end(), one.asList().begin(), one.asList().end());
    items.insert(items.end(), other.asList().begin(), other.asList().end());
    return ScriptValue::list(std::move(items));
}

ScriptValue rounded(const ScriptValue& number, Term direction, const Context& context) {
    const double value = realOf(numberOf(number, context));
    switch (direction) {
    case Term::up:
        return wholeNumber(std::ceil(value));
    case Term::down:
        return wholeNumber(std::floor(value));
    case Term::towardZero:
        return wholeNumber(std::trunc(value));
    case Term::asTaughtInSchool:
        return wholeNumber(std::round(value));
    default:
        return wholeNumber(std::nearbyint(value));
    }
}

} // namespace qv::applescript
