#pragma once

#include "platform/foundation/values/Value.h"
#include "platform/predicate/evaluation/Budget.h"

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

namespace qv::predicate {

/// The arguments of a function, and its bounds.
struct Arguments {
    std::span<const Value> values;
    Budget& budget;
    [[nodiscard]] const Value& operator[](std::size_t index) const { return values[index]; }
};

/// A function of the language. `apply` gets as many arguments as `argumentCount` says and throws an
/// Exception for one that it cannot take.
struct Function {
    std::string_view name;
    std::uint8_t argumentCount;
    Value (*apply)(const Arguments& arguments);
};
constexpr std::size_t kMostArguments = 2;

/// The place in the table of a name as it is written, `sum`, `sum:` or `modulus:by:`.
[[nodiscard]] std::optional<std::uint8_t> functionNamed(std::string_view name) noexcept;
[[nodiscard]] const Function& functionAt(std::uint8_t index) noexcept;

/// Implements CAST to NSNumber, NSString or NSDate. Throws an Exception for another class name,
/// nil, and a value that cannot be converted.
[[nodiscard]] Value castTo(const Value& value, const Value& className);

} // namespace qv::predicate
