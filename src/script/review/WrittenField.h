#pragma once

#include "platform/foundation/values/Value.h"
#include "script/review/Accounts.h"
#include "script/step/Field.h"

#include <tl/expected.hpp>

#include <optional>
#include <string>
#include <string_view>

namespace qv {

/// The reason why a value that a person wrote cannot be built: the parts of a Finding that its
/// field knows.
struct WrittenFault {
    std::string_view rule;
    std::string reason;
    std::string mend;
    std::optional<std::size_t> element = std::nullopt;
};

/// The facts that the conversions of values need besides the value.
struct WritingContext {
    Accounts accounts;
    bool ownersByName = false; ///< show names of users and groups, not their numbers
};

/// The conversions between the values of a kind of fields and their form in scripts for people.
struct WrittenKind {
    FieldKind kind;
    bool isOptional;       ///< a person may leave it out
    std::string_view text; ///< for people: "octal text such as \"0755\""
    /// The value of the exact step.
    tl::expected<Value, WrittenFault> (*build)(const Value& written, WritingContext& context);
    /// The value as a person would write it. Building it may give another value, so that a caller
    /// compares.
    std::optional<Value> (*show)(const Value& exact, WritingContext& context);
    /// A JSON Schema of what a person writes.
    Value (*schema)();
};
[[nodiscard]] const WrittenKind& writtenKind(FieldKind kind) noexcept;

/// Whether two values are equal in value and in kind. Containers are if they are the same object,
/// or arrays of equal strings.
[[nodiscard]] bool isSameExactly(const Value& left, const Value& right);

} // namespace qv
