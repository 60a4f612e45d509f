#include "platform/predicate/evaluation/KeyPath.h"

#include "platform/predicate/language/Reasons.h"

#include <fmt/core.h>

#include <vector>

namespace qv {

namespace predicate {

namespace {

using ValueKind = Value::Kind;
constexpr int kDeepest = 128; // arrays in arrays

std::optional<Value> valueForKey(const Value& value, std::string_view key, int depth,
                                 Budget& budget);

// The answers of all elements; the null object where one has none.
Value valuesForKey(const Value& collection, std::string_view key, int depth, Budget& budget) {
    if (depth == kDeepest) {
        raiseInvalidArgument(fmt::format("The arrays that the key {} is asked of are nested more "
                                         "than {} levels deep",
                                         quoted(key), kDeepest));
    }
    const std::span<const Value> elements = collection.asArray();
    budget.make(elements.size());
    std::vector<Value> values;
    values.reserve(elements.size());
    for (const Value& element : elements) {
        values.push_back(valueForKey(element, key, depth + 1, budget).value_or(Value()));
    }
    return collection.is(ValueKind::set) ? Value::set(std::move(values))
                                         : Value::array(std::move(values));
}

std::optional<Value> valueForKey(const Value& value, std::string_view key, int depth,
                                 Budget& budget) {
    if (value.isNull()) {
        return std::nullopt;
    }
    budget.charge(1);
    const bool marked = key.starts_with('@');
    if (value.is(ValueKind::dictionary) && !marked) {
        const Value* found = value.find(key);
        return found == nullptr ? std::nullopt : std::optional(*found);
    }
    if ((value.is(ValueKind::array) || value.is(ValueKind::set)) && !marked) {
        return valuesForKey(value, key, depth, budget);
    }
    std::optional<Value> found = property(value, marked ? key.substr(1) : key, budget);
    if (!found) {
        raiseUndefinedKey(
            fmt::format("{} has nothing under the key {}", kindAndValue(value), quoted(key)), value,
            key);
    }
    return found;
}

} // namespace

std::pair<std::string_view, std::string_view> splitPath(std::string_view path) noexcept {
    const std::size_t dot = path.find('.');
    if (dot == std::string_view::npos) {
        return {path, {}};
    }
    return {path.substr(0, dot), path.substr(dot + 1)};
}

} // namespace predicate

std::optional<Value> valueForKeyPath(const Value& value, std::string_view path,
                                     predicate::Budget& budget) {
    std::optional<Value> current = value;
    while (current && !path.empty()) {
        const auto [key, rest] = predicate::splitPath(path);
        const bool collection = current->is(Value::Kind::array) || current->is(Value::Kind::set);
        if (collection && !rest.empty() && key.starts_with('@') &&
            predicate::isCollectionOperator(key.substr(1))) {
            return predicate::collectionOperator(key.substr(1), *current, rest, budget);
        }
        current = predicate::valueForKey(*current, key, 0, budget);
        path = rest;
    }
    return current;
}

std::optional<Value> KeyValueCoding::valueForKeyPath(std::string_view path,
                                                     predicate::Budget& budget) {
    const auto [key, rest] = predicate::splitPath(path);
    std::optional<Value> value = valueForKey(key);
    return value && !rest.empty() ? qv::valueForKeyPath(*value, rest, budget) : value;
}

Value KeyValueCoding::self() { return Value::dictionary({}); }

void raiseUndefinedKey(std::string reason, const Value& target, std::string_view key) {
    throw Exception(std::string(exception_name::kUnknownKey), std::move(reason),
                    Value::dictionary({{"NSTargetObjectUserInfoKey", target},
                                       {"NSUnknownUserInfoKey", Value::string(key)}}));
}

} // namespace qv
