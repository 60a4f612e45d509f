#include "platform/predicate/evaluation/Arithmetic.h"
#include "platform/predicate/evaluation/Comparing.h"
#include "platform/predicate/evaluation/KeyPath.h"
#include "platform/predicate/language/Reasons.h"

#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <vector>

namespace qv::predicate {

namespace {

using ValueKind = Value::Kind;
using Values = std::vector<Value>;
using Result = std::optional<Value>;

Result sum(const Values& values, Budget&) { return sumOf(values); }

Result average(const Values& values, Budget&) {
    return Value::real(values.empty() ? 0 : averageOf(values));
}

std::optional<Value> extreme(const Values& values, bool largest, Budget& budget) {
    const Value* best = nullptr;
    for (const Value& value : values) {
        if (best == nullptr) {
            best = &value;
            continue;
        }
        const std::partial_ordering compared = order(value, *best, {}, budget);
        best = (largest ? compared > 0 : compared < 0) ? &value : best;
    }
    return best == nullptr ? std::nullopt : std::optional(*best);
}
Result least(const Values& values, Budget& budget) { return extreme(values, false, budget); }
Result largest(const Values& values, Budget& budget) { return extreme(values, true, budget); }

Result united(const Values& values, Budget&) { return Value::array(values); }

// Each element once, in the order in which they come first.
Values distinct(const Values& values, Budget& budget) {
    Values found;
    for (const Value& value : values) {
        const auto same = [&](const Value& known) { return isEqual(known, value, {}, budget); };
        if (std::ranges::none_of(found, same)) {
            found.push_back(value);
        }
    }
    return found;
}
Result distinctUnited(const Values& values, Budget& budget) {
    return Value::array(distinct(values, budget));
}

Values flattened(const Values& collections, Budget& budget) {
    Values values;
    for (const Value& collection : collections) {
        if (!collection.is(ValueKind::array) && !collection.is(ValueKind::set)) {
            raiseInvalidArgument(
                fmt::format("A union of arrays or sets has {} in it", kindAndValue(collection)));
        }
        const std::span<const Value> elements = collection.asArray();
        budget.make(elements.size() + 1);
        values.insert(values.end(), elements.begin(), elements.end());
    }
    return values;
}
Result arraysUnited(const Values& values, Budget& budget) {
    return Value::array(flattened(values, budget));
}
Result distinctArraysUnited(const Values& values, Budget& budget) {
    return Value::array(distinct(flattened(values, budget), budget));
}
Result distinctSetsUnited(const Values& values, Budget& budget) {
    return Value::set(distinct(flattened(values, budget), budget));
}

struct Operator {
    std::string_view name;
    bool takesNull; // takes the null object as one of the values
    Result (*apply)(const Values& values, Budget& budget);
};

constexpr std::array kOperators = std::to_array<Operator>({
    {"sum", false, sum},
    {"avg", false, average},
    {"min", false, least},
    {"max", false, largest},
    {"unionOfObjects", true, united},
    {"distinctUnionOfObjects", true, distinctUnited},
    {"unionOfArrays", true, arraysUnited},
    {"distinctUnionOfArrays", true, distinctArraysUnited},
    {"distinctUnionOfSets", true, distinctSetsUnited},
});

} // namespace

bool isCollectionOperator(std::string_view name) noexcept {
    return std::ranges::find(kOperators, name, &Operator::name) != kOperators.end();
}

std::optional<Value> collectionOperator(std::string_view name, const Value& collection,
                                        std::string_view path, Budget& budget) {
    const auto* const found = std::ranges::find(kOperators, name, &Operator::name);
    Values values;
    budget.make(collection.asArray().size());
    for (const Value& element : collection.asArray()) {
        std::optional<Value> value = valueForKeyPath(element, path, budget);
        if (value && (found->takesNull || !value->isNull())) {
            values.push_back(*std::move(value));
        }
    }
    return found->apply(values, budget);
}

} // namespace qv::predicate
