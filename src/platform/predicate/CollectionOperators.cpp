#include "platform/predicate/Arithmetic.h"
#include "platform/predicate/Comparing.h"
#include "platform/predicate/KeyPath.h"

#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <vector>

namespace qv::predicate {

namespace {

using Kind = Value::Kind;
using Values = std::vector<Value>;

Value sum(const Values& values, Budget&) { return sumOf(values); }

Value average(const Values& values, Budget&) {
    return Value::real(values.empty() ? 0 : averageOf(values));
}

Value extreme(const Values& values, bool largest) {
    const Value* best = nullptr;
    for (const Value& value : values) {
        if (best == nullptr) {
            best = &value;
            continue;
        }
        const std::partial_ordering compared = order(value, *best, {});
        best = (largest ? compared > 0 : compared < 0) ? &value : best;
    }
    return best == nullptr ? Value() : *best;
}
Value least(const Values& values, Budget&) { return extreme(values, false); }
Value largest(const Values& values, Budget&) { return extreme(values, true); }

Value united(const Values& values, Budget&) { return Value::array(values); }

// Each once, in the order in which they come first.
Values distinct(const Values& values, Budget& budget) {
    Values found;
    for (const Value& value : values) {
        budget.charge(found.size() + 1);
        if (std::ranges::find(found, value) == found.end()) {
            found.push_back(value);
        }
    }
    return found;
}
Value distinctUnited(const Values& values, Budget& budget) {
    return Value::array(distinct(values, budget));
}

Values flattened(const Values& collections, Budget& budget) {
    Values values;
    for (const Value& collection : collections) {
        if (!collection.is(Kind::array) && !collection.is(Kind::set)) {
            raiseInvalidArgument("A union of arrays or sets needs a collection of such");
        }
        const std::span<const Value> elements = collection.asArray();
        budget.charge(elements.size() + 1);
        values.insert(values.end(), elements.begin(), elements.end());
    }
    return values;
}
Value arraysUnited(const Values& values, Budget& budget) {
    return Value::array(flattened(values, budget));
}
Value distinctArraysUnited(const Values& values, Budget& budget) {
    return Value::array(distinct(flattened(values, budget), budget));
}
Value distinctSetsUnited(const Values& values, Budget& budget) {
    return Value::set(distinct(flattened(values, budget), budget));
}

struct Operator {
    std::string_view name;
    Value (*apply)(const Values& values, Budget& budget);
};

constexpr std::array kOperators = std::to_array<Operator>({
    {"sum", sum},
    {"avg", average},
    {"min", least},
    {"max", largest},
    {"unionOfObjects", united},
    {"distinctUnionOfObjects", distinctUnited},
    {"unionOfArrays", arraysUnited},
    {"distinctUnionOfArrays", distinctArraysUnited},
    {"distinctUnionOfSets", distinctSetsUnited},
});

} // namespace

std::optional<Value> collectionOperator(std::string_view name, const Value& collection,
                                        std::string_view path, Budget& budget) {
    const auto* const found = std::ranges::find(kOperators, name, &Operator::name);
    if (found == kOperators.end() || path.empty()) {
        return std::nullopt;
    }
    Values values; // what an element does not have is left out
    budget.charge(collection.asArray().size());
    for (const Value& element : collection.asArray()) {
        if (Value value = valueForKeyPath(element, path, budget); !value.isNull()) {
            values.push_back(std::move(value));
        }
    }
    return found->apply(values, budget);
}

} // namespace qv::predicate
