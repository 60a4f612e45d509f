#include "platform/predicate/evaluation/Functions.h"

#include "platform/foundation/values/Conversions.h"
#include "platform/foundation/values/Description.h"
#include "platform/predicate/evaluation/Arithmetic.h"
#include "platform/predicate/evaluation/TextFolding.h"
#include "platform/predicate/language/Reasons.h"

#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <cmath>
#include <random>
#include <vector>

namespace qv::predicate {

namespace {

using ValueKind = Value::Kind;

[[noreturn]] void raiseFor(std::string_view function, const Value& argument,
                           std::string_view cause) {
    raiseInvalidArgument(
        fmt::format("Can't compute {} of {}: {}", function, kindAndValue(argument), cause));
}

std::span<const Value> elementsOf(const Value& collection, std::string_view function) {
    if (!collection.is(ValueKind::array) && !collection.is(ValueKind::set)) {
        raiseFor(function, collection, "it is not an array or set");
    }
    return collection.asArray();
}

std::span<const Value> someElementsOf(const Value& collection, std::string_view function) {
    const std::span<const Value> elements = elementsOf(collection, function);
    if (elements.empty()) {
        raiseFor(function, collection, "it is empty");
    }
    return elements;
}

std::vector<double> realsOf(std::span<const Value> elements, std::string_view function) {
    std::vector<double> reals;
    reals.reserve(elements.size());
    for (const Value& element : elements) {
        reals.push_back(realOf(element, function));
    }
    return reals;
}

Value sum(const Arguments& arguments) { return sumOf(elementsOf(arguments[0], "sum")); }

Value count(const Arguments& arguments) {
    const Value& collection = arguments[0];
    const std::size_t size = collection.is(ValueKind::dictionary)
                                 ? collection.asDictionary().size()
                                 : elementsOf(collection, "count").size();
    return Value::integer(static_cast<std::int64_t>(size));
}

Value extreme(const Value& collection, std::string_view function, bool largest) {
    const std::span<const Value> elements = someElementsOf(collection, function);
    const Value* best = elements.data();
    for (const Value& element : elements) {
        (void)realOf(element, function);
        const std::partial_ordering order = orderOfNumbers(element, *best);
        best = (largest ? order > 0 : order < 0) ? &element : best;
    }
    return *best;
}
Value least(const Arguments& arguments) { return extreme(arguments[0], "min", false); }
Value largest(const Arguments& arguments) { return extreme(arguments[0], "max", true); }

Value average(const Arguments& arguments) {
    return Value::real(averageOf(someElementsOf(arguments[0], "average")));
}

// Not-a-number sorts behind all others, so that there is an order.
bool sortsBefore(double left, double right) {
    return std::isnan(right) ? !std::isnan(left) : left < right;
}

Value median(const Arguments& arguments) {
    std::vector<double> reals = realsOf(someElementsOf(arguments[0], "median"), "median");
    std::ranges::sort(reals, [&](double left, double right) {
        arguments.budget.charge(1);
        return sortsBefore(left, right);
    });
    const std::size_t middle = reals.size() / 2;
    return Value::real(reals.size() % 2 == 1 ? reals[middle]
                                             : (reals[middle - 1] + reals[middle]) / 2);
}

// Returns all the numbers that occur most often, in ascending order.
Value mode(const Arguments& arguments) {
    const std::span<const Value> elements = elementsOf(arguments[0], "mode");
    (void)realsOf(elements, "mode");
    std::vector<Value> sorted(elements.begin(), elements.end());
    std::ranges::sort(sorted, [&](const Value& left, const Value& right) {
        arguments.budget.charge(1);
        const bool noNumber = right.is(ValueKind::real) && std::isnan(right.asReal());
        return noNumber ? orderOfNumbers(left, left) == 0 : orderOfNumbers(left, right) < 0;
    });
    std::vector<Value> modes;
    std::size_t most = 1;
    for (std::size_t begin = 0, end = 0; begin < sorted.size(); begin = end) {
        while (end < sorted.size() && (end == begin || sorted[end] == sorted[begin])) {
            ++end;
        }
        if (end - begin > most) {
            modes.clear();
            most = end - begin;
        }
        if (end - begin == most) {
            modes.push_back(sorted[begin]);
        }
    }
    return Value::array(std::move(modes));
}

// The deviation of the whole population.
Value standardDeviation(const Arguments& arguments) {
    const std::span<const Value> elements = someElementsOf(arguments[0], "stddev");
    const double mean = averageOf(elements);
    double squares = 0;
    for (const double real : realsOf(elements, "stddev")) {
        squares += (real - mean) * (real - mean);
    }
    return Value::real(std::sqrt(squares / static_cast<double>(elements.size())));
}

Value absolute(const Arguments& arguments) {
    const Value& number = arguments[0];
    return realOf(number, "abs") < 0 ? negative(number) : number;
}

// An integer is its own rounded form.
template <double (*round)(double)> Value rounded(const Arguments& arguments) {
    const double real = realOf(arguments[0], "the rounded value");
    return arguments[0].is(ValueKind::real) ? Value::real(round(real)) : arguments[0];
}

template <double (*function)(double)> Value analytic(const Arguments& arguments) {
    return Value::real(function(realOf(arguments[0], "a function")));
}

std::string_view textOf(const Value& text, std::string_view function) {
    if (!text.is(ValueKind::string)) {
        raiseFor(function, text, "it is not a string");
    }
    return text.asString();
}
Value lowercase(const Arguments& arguments) {
    return Value::string(lowercased(textOf(arguments[0], "lowercase")));
}
Value uppercase(const Arguments& arguments) {
    return Value::string(uppercased(textOf(arguments[0], "uppercase")));
}

Value now(const Arguments&) {
    const std::chrono::duration<double> time = std::chrono::system_clock::now().time_since_epoch();
    return Value::date({time.count() - Date::kReference});
}

Value random(const Arguments&) {
    std::random_device device;
    return Value::real(std::uniform_real_distribution<double>(0, 1)(device));
}

Value randomBelow(const Arguments& arguments) {
    const Value& limit = arguments[0];
    if (!limit.is(ValueKind::integer) || limit.asInteger() <= 0) {
        raiseFor("randomn", limit, "it is not a positive integer");
    }
    std::random_device device;
    return Value::integer(
        std::uniform_int_distribution<std::int64_t>(0, limit.asInteger() - 1)(device));
}

template <Arithmetic operation> Value calculated(const Arguments& arguments) {
    return calculate(operation, arguments[0], arguments[1]);
}
Value modulus(const Arguments& arguments) { return remainder(arguments[0], arguments[1]); }

std::uint64_t bitsOf(const Value& number, std::string_view function) {
    if (!number.isNumber() || number.is(ValueKind::real)) {
        raiseFor(function, number, "it is not an integer");
    }
    return static_cast<std::uint64_t>(longLongValue(&number));
}
Value wholeOf(std::uint64_t bits) { return Value::integer(static_cast<std::int64_t>(bits)); }

Value bitwiseAnd(const Arguments& arguments) {
    return wholeOf(bitsOf(arguments[0], "bitwiseAnd:with:") &
                   bitsOf(arguments[1], "bitwiseAnd:with:"));
}
Value bitwiseOr(const Arguments& arguments) {
    return wholeOf(bitsOf(arguments[0], "bitwiseOr:with:") |
                   bitsOf(arguments[1], "bitwiseOr:with:"));
}
Value bitwiseXor(const Arguments& arguments) {
    return wholeOf(bitsOf(arguments[0], "bitwiseXor:with:") ^
                   bitsOf(arguments[1], "bitwiseXor:with:"));
}
Value onesComplement(const Arguments& arguments) {
    return wholeOf(~bitsOf(arguments[0], "onesComplement:"));
}

std::uint64_t shiftOf(const Value& shift, std::string_view function) {
    const std::uint64_t bits = bitsOf(shift, function);
    if (bits >= 64) {
        raiseFor(function, shift, "a shift is at least 0 and below 64");
    }
    return bits;
}
Value leftShift(const Arguments& arguments) {
    return wholeOf(bitsOf(arguments[0], "leftshift:by:") << shiftOf(arguments[1], "leftshift:by:"));
}
// The sign stays.
Value rightShift(const Arguments& arguments) {
    const auto whole = static_cast<std::int64_t>(bitsOf(arguments[0], "rightshift:by:"));
    return Value::integer(whole >> shiftOf(arguments[1], "rightshift:by:"));
}

Value itself(const Arguments& arguments) { return arguments[0]; }

constexpr std::array kFunctions = std::to_array<Function>({
    {"sum", 1, sum},
    {"count", 1, count},
    {"min", 1, least},
    {"max", 1, largest},
    {"average", 1, average},
    {"median", 1, median},
    {"mode", 1, mode},
    {"stddev", 1, standardDeviation},
    {"abs", 1, absolute},
    {"ceiling", 1, rounded<std::ceil>},
    {"floor", 1, rounded<std::floor>},
    {"trunc", 1, rounded<std::trunc>},
    {"sqrt", 1, analytic<std::sqrt>},
    {"exp", 1, analytic<std::exp>},
    {"ln", 1, analytic<std::log>},
    {"log", 1, analytic<std::log10>},
    {"lowercase", 1, lowercase},
    {"uppercase", 1, uppercase},
    {"now", 0, now},
    {"random", 0, random},
    {"randomn", 1, randomBelow},
    {"add:to:", 2, calculated<Arithmetic::add>},
    {"from:subtract:", 2, calculated<Arithmetic::subtract>},
    {"multiply:by:", 2, calculated<Arithmetic::multiply>},
    {"divide:by:", 2, calculated<Arithmetic::divide>},
    {"modulus:by:", 2, modulus},
    {"raise:toPower:", 2, calculated<Arithmetic::power>},
    {"bitwiseAnd:with:", 2, bitwiseAnd},
    {"bitwiseOr:with:", 2, bitwiseOr},
    {"bitwiseXor:with:", 2, bitwiseXor},
    {"onesComplement:", 1, onesComplement},
    {"leftshift:by:", 2, leftShift},
    {"rightshift:by:", 2, rightShift},
    {"noindex:", 1, itself},
});

// Integer texts give integers.
Value numberOf(std::string_view text) {
    std::int64_t whole = 0;
    const auto [end, status] = std::from_chars(text.data(), text.data() + text.size(), whole);
    if (status == std::errc{} && end == text.data() + text.size()) {
        return Value::integer(whole);
    }
    const Value value = Value::string(text);
    return Value::real(doubleValue(&value));
}

} // namespace

std::optional<std::uint8_t> functionNamed(std::string_view name) noexcept {
    // `sum:` is `sum`, but `modulus:by:` is written with its colons.
    const std::string_view bare = name.ends_with(':') ? name.substr(0, name.size() - 1) : name;
    const auto* const found = std::ranges::find_if(kFunctions, [&](const Function& function) {
        return function.name == name || function.name == bare;
    });
    if (found == kFunctions.end()) {
        return std::nullopt;
    }
    return static_cast<std::uint8_t>(found - kFunctions.begin());
}

const Function& functionAt(std::uint8_t index) noexcept { return kFunctions[index]; }

Value castTo(const Value& value, const Value& className) {
    const auto refuse = [&](std::string_view cause) {
        raiseInvalidArgument(
            fmt::format("Can't cast {} to {}: {}", kindAndValue(value), shown(className), cause));
    };
    const std::string_view name = className.is(ValueKind::string) ? className.asString() : "";
    if (value.isNull()) {
        refuse("there is nothing to cast");
    }
    if (name == "NSString") {
        return Value::string(description(value));
    }
    if (name == "NSNumber") {
        if (value.is(ValueKind::string)) {
            return numberOf(value.asString());
        }
        if (value.is(ValueKind::date)) {
            return Value::real(value.asDate().secondsSinceReference);
        }
        if (value.isNumber()) {
            return value;
        }
    } else if (name == "NSDate") {
        if (value.isNumber()) {
            return Value::date({doubleValue(&value)});
        }
        if (value.is(ValueKind::date)) {
            return value;
        }
    } else {
        refuse("the classes are NSNumber, NSString and NSDate");
    }
    refuse("it cannot become one");
    return {};
}

} // namespace qv::predicate
