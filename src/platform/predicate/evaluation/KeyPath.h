#pragma once

#include "platform/predicate/evaluation/KeyValueCoding.h"

#include <optional>
#include <string_view>
#include <utility>

namespace qv::predicate {

/// A path's first key, and the rest behind the dot; empty when there is none.
[[nodiscard]] std::pair<std::string_view, std::string_view>
splitPath(std::string_view path) noexcept;

/// Operators of collections, by their names without `@`. In CollectionOperators.cpp.
[[nodiscard]] bool isCollectionOperator(std::string_view name) noexcept;
/// Applies an operator to the values that `path` finds in the elements of an array or set: nil is
/// left out, and the null object too where numbers or an order are wanted.
[[nodiscard]] std::optional<Value> collectionOperator(std::string_view name,
                                                      const Value& collection,
                                                      std::string_view path, Budget& budget);

/// A property of a value that is not a collection, such as the length of a string. In
/// Properties.cpp.
[[nodiscard]] std::optional<Value> property(const Value& value, std::string_view key,
                                            Budget& budget);

} // namespace qv::predicate
