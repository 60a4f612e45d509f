#include "platform/predicate/KeyPath.h"

#include "platform/foundation/values/Exception.h"

#include <fmt/core.h>

#include <vector>

namespace qv {

namespace predicate {

namespace {

using Kind = Value::Kind;
constexpr int kDeepest = 128; // arrays in arrays

Value valueForKey(const Value& value, std::string_view key, int depth, Budget& budget);

[[noreturn]] void raiseFor(const Value& value, std::string_view key) {
    raiseUndefinedKey(fmt::format("<{}>", className(value.kind())), value, key);
}

// The answers of all elements; the null object where one has none.
Value valuesForKey(const Value& collection, std::string_view key, int depth, Budget& budget) {
    if (depth == kDeepest) {
        throw Exception(std::string(exception_name::kInvalidArgument),
                        fmt::format("The arrays that the key {} is asked of are nested more than "
                                    "{} levels deep",
                                    key, kDeepest));
    }
    const std::span<const Value> elements = collection.asArray();
    budget.charge(elements.size());
    std::vector<Value> values;
    values.reserve(elements.size());
    for (const Value& element : elements) {
        values.push_back(valueForKey(element, key, depth + 1, budget));
    }
    return collection.is(Kind::set) ? Value::set(std::move(values))
                                    : Value::array(std::move(values));
}

Value valueForKey(const Value& value, std::string_view key, int depth, Budget& budget) {
    if (value.isNull()) {
        return {};
    }
    const bool marked = key.starts_with('@');
    if (value.is(Kind::dictionary) && !marked) {
        const Value* found = value.find(key);
        return found == nullptr ? Value() : *found;
    }
    if ((value.is(Kind::array) || value.is(Kind::set)) && !marked) {
        return valuesForKey(value, key, depth, budget);
    }
    const std::optional<Value> found = property(value, marked ? key.substr(1) : key);
    if (!found) {
        raiseFor(value, key);
    }
    return *found;
}

} // namespace

std::pair<std::string_view, std::string_view> splitPath(std::string_view path) noexcept {
    const std::size_t dot = path.find('.');
    if (dot == std::string_view::npos) {
        return {path, {}};
    }
    return {path.substr(0, dot), path.substr(dot + 1)};
}

Value valueForKeyPath(const Value& value, std::string_view path, Budget& budget) {
    Value current = value;
    while (!path.empty()) {
        const auto [key, rest] = splitPath(path);
        const bool collection = current.is(Kind::array) || current.is(Kind::set);
        if (collection && key.starts_with('@')) {
            if (auto result = collectionOperator(key.substr(1), current, rest, budget)) {
                return *std::move(result);
            }
        }
        current = valueForKey(current, key, 0, budget);
        path = rest;
    }
    return current;
}

} // namespace predicate

Value valueForKeyPath(const Value& value, std::string_view path) {
    predicate::Budget budget;
    return predicate::valueForKeyPath(value, path, budget);
}

Value KeyValueCoding::valueForKeyPath(std::string_view path) {
    const auto [key, rest] = predicate::splitPath(path);
    const std::optional<Value> value = valueForKey(key);
    if (!value) {
        raiseUndefinedKey(description(), self(), key);
    }
    return rest.empty() ? *value : qv::valueForKeyPath(*value, rest);
}

Value KeyValueCoding::self() { return Value::dictionary({}); }

void raiseUndefinedKey(std::string_view description, const Value& target, std::string_view key) {
    throw Exception(std::string(exception_name::kUnknownKey),
                    fmt::format("[{} valueForUndefinedKey:]: this class is not key value "
                                "coding-compliant for the key {}.",
                                description, key),
                    Value::dictionary({{"NSTargetObjectUserInfoKey", target},
                                       {"NSUnknownUserInfoKey", Value::string(key)}}));
}

} // namespace qv
