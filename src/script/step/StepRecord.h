#pragma once

#include "script/step/OperationTable.h"

#include <concepts>
#include <variant>

namespace qv {

/// The argument of a method for a field. Looks at a URL or a value; does not own it.
class StepArgument {
public:
    // A method hands on its parameters as they are.
    // NOLINTBEGIN(google-explicit-constructor)
    StepArgument(const std::optional<URL>& url) noexcept : argument_(&url) {}
    StepArgument(const std::optional<Value>& value) noexcept : argument_(&value) {}
    StepArgument(std::same_as<bool> auto flag) noexcept : argument_(flag) {}
    template <std::integral Number>
        requires(!std::same_as<Number, bool>)
    StepArgument(Number number) noexcept : argument_(std::int64_t{number}) {}
    // NOLINTEND(google-explicit-constructor)

    [[nodiscard]] bool isMissingURL() const noexcept {
        const auto* url = std::get_if<const std::optional<URL>*>(&argument_);
        return url != nullptr && !**url;
    }
    /// The value as a record holds it; none for a URL or a value that is missing.
    [[nodiscard]] std::optional<Value> recorded() const;

private:
    std::variant<const std::optional<URL>*, const std::optional<Value>*, bool, std::int64_t>
        argument_;
};

/// The arguments, one for each field of an operation's row, in the row's order.
using StepArguments = std::span<const StepArgument>;

/// Returns code 4 of NSCocoaErrorDomain if a URL is missing.
[[nodiscard]] Error missingURL(const Operation& operation, StepArguments arguments);

/// The record of an operation: "operation" and the keys of the row's fields. Throws an Exception if
/// a value is missing that a record must hold.
[[nodiscard]] Value stepRecord(const Operation& operation, StepArguments arguments);

} // namespace qv
