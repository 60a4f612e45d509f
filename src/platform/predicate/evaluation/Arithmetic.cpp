#include "platform/predicate/evaluation/Arithmetic.h"

#include "platform/foundation/values/Conversions.h"
#include "platform/predicate/language/Language.h"
#include "platform/predicate/language/Reasons.h"

#include <fmt/core.h>

#include <cmath>
#include <limits>
#include <utility>

namespace qv::predicate {

namespace {

using ValueKind = Value::Kind;

// Wide enough for every result of two 64-bit integers, signed or not.
__extension__ using Wide = __int128;

std::partial_ordering orderWith(Wide whole, double real) {
    constexpr double kLimit = 18446744073709551616.0; // 2^64
    if (std::isnan(real)) {
        return std::partial_ordering::unordered;
    }
    if (real >= kLimit || real < -kLimit) {
        return real > 0 ? std::partial_ordering::less : std::partial_ordering::greater;
    }
    const auto truncated = static_cast<Wide>(real);
    if (whole != truncated) {
        return whole <=> truncated;
    }
    return 0.0 <=> (real - std::trunc(real));
}

void requireNumber(const Value& value, std::string_view what) {
    if (!value.isNumber()) {
        raiseInvalidArgument(fmt::format("Can't calculate {} with {}", what, kindAndValue(value)));
    }
}

Wide wideOf(const Value& whole) {
    return whole.is(ValueKind::unsignedInteger) ? static_cast<Wide>(whole.asUnsignedInteger())
                                                : static_cast<Wide>(longLongValue(&whole));
}

[[noreturn]] void raiseTooLarge(std::string_view what) {
    raiseInvalidArgument(fmt::format("The result of {} does not fit 64 bits", what));
}

Value wholeOf(Wide whole, std::string_view what) {
    if (whole > std::numeric_limits<std::uint64_t>::max() ||
        whole < std::numeric_limits<std::int64_t>::min()) {
        raiseTooLarge(what);
    }
    return whole < 0 ? Value::integer(static_cast<std::int64_t>(whole))
                     : Value::unsignedInteger(static_cast<std::uint64_t>(whole));
}

Value calculateWhole(Arithmetic operation, const Value& left, const Value& right) {
    const Wide a = wideOf(left);
    const Wide b = wideOf(right);
    const std::string_view what = spelling(operation);
    switch (operation) {
    case Arithmetic::add:
        return wholeOf(a + b, what);
    case Arithmetic::subtract:
        return wholeOf(a - b, what);
    case Arithmetic::multiply: {
        Wide product = 0;
        if (__builtin_mul_overflow(a, b, &product)) {
            raiseTooLarge(what);
        }
        return wholeOf(product, what);
    }
    default:
        if (b == 0) {
            raiseInvalidArgument("Can't divide an integer by zero");
        }
        return wholeOf(a / b, what);
    }
}

} // namespace

double realOf(const Value& number, std::string_view what) {
    requireNumber(number, what);
    return doubleValue(&number);
}

Value calculate(Arithmetic operation, const Value& left, const Value& right) {
    const std::string_view what = spelling(operation);
    const double a = realOf(left, what);
    const double b = realOf(right, what);
    if (operation == Arithmetic::power) {
        return Value::real(std::pow(a, b));
    }
    if (!left.is(ValueKind::real) && !right.is(ValueKind::real)) {
        return calculateWhole(operation, left, right);
    }
    switch (operation) {
    case Arithmetic::add:
        return Value::real(a + b);
    case Arithmetic::subtract:
        return Value::real(a - b);
    case Arithmetic::multiply:
        return Value::real(a * b);
    default:
        return Value::real(a / b);
    }
}

Value negative(const Value& number) {
    const double real = realOf(number, "-");
    return number.is(ValueKind::real) ? Value::real(-real) : wholeOf(-wideOf(number), "-");
}

Value remainder(const Value& dividend, const Value& divisor) {
    const double a = realOf(dividend, "modulus:by:");
    const double b = realOf(divisor, "modulus:by:");
    if (dividend.is(ValueKind::real) || divisor.is(ValueKind::real)) {
        return Value::real(std::fmod(a, b));
    }
    if (wideOf(divisor) == 0) {
        raiseInvalidArgument("Can't divide an integer by zero");
    }
    return wholeOf(wideOf(dividend) % wideOf(divisor), "modulus:by:");
}

std::partial_ordering orderOfNumbers(const Value& left, const Value& right) noexcept {
    if (left.is(ValueKind::real)) {
        return right.is(ValueKind::real) ? left.asReal() <=> right.asReal()
                                         : 0 <=> orderWith(wideOf(right), left.asReal());
    }
    return right.is(ValueKind::real) ? orderWith(wideOf(left), right.asReal())
                                     : wideOf(left) <=> wideOf(right);
}

Value sumOf(std::span<const Value> numbers) {
    Value sum = Value::integer(0);
    for (const Value& number : numbers) {
        sum = calculate(Arithmetic::add, sum, number);
    }
    return sum;
}

double averageOf(std::span<const Value> numbers) {
    double sum = 0;
    for (const Value& number : numbers) {
        sum += realOf(number, "average");
    }
    return sum / static_cast<double>(numbers.size());
}

} // namespace qv::predicate
