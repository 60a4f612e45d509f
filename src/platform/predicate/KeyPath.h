#pragma once

#include "platform/predicate/Budget.h"
#include "platform/predicate/KeyValueCoding.h"

#include <optional>
#include <string_view>
#include <utility>

namespace qv::predicate {

/// `qv::valueForKeyPath`, out of an evaluation's budget.
[[nodiscard]] Value valueForKeyPath(const Value& value, std::string_view path, Budget& budget);

/// A path's first key, and the rest behind the dot; empty when there is none.
[[nodiscard]] std::pair<std::string_view, std::string_view>
splitPath(std::string_view path) noexcept;

/// `name` without `@`, applied to what `path` finds in the elements of an array or set; none when
/// there is no such operator. In CollectionOperators.cpp.
[[nodiscard]] std::optional<Value> collectionOperator(std::string_view name,
                                                      const Value& collection,
                                                      std::string_view path, Budget& budget);

/// A property of a value that is no collection, such as the length of a string. In Properties.cpp.
[[nodiscard]] std::optional<Value> property(const Value& value, std::string_view key);

} // namespace qv::predicate
