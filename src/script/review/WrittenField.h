#pragma once

#include "platform/foundation/values/Value.h"
#include "script/review/Accounts.h"
#include "script/step/Field.h"

#include <tl/expected.hpp>

#include <optional>
#include <string>
#include <string_view>

namespace qv {

/// Why a value that a person wrote cannot be built: the parts of a Finding that its field knows.
struct WrittenFault {
    std::string_view rule;
    std::string reason;
    std::string mend;
    std::optional<std::size_t> element = std::nullopt;
};

/// What the conversions of values know besides the value.
struct WritingContext {
    Accounts accounts;
    bool ownersByName = false; ///< show names of users and groups, not their numbers
};

/// How the values of a kind of fields are written in scripts for people.
struct WrittenKind {
    FieldKind kind;
    bool isOptional;       ///< a person may leave it out
    std::string_view text; ///< for people: "octal text such as \"0755\""
    /// The value of the exact step.
    tl::expected<Value, WrittenFault> (*build)(const Value& written, WritingContext& context);
    /// What a person would write. Building it may give another value, so that a caller compares.
    std::optional<Value> (*show)(const Value& exact, WritingContext& context);
    /// A JSON Schema of what a person writes.
    Value (*schema)();
};
[[nodiscard]] const WrittenKind& writtenKind(FieldKind kind) noexcept;

/// Equal in value and in kind. Of containers, the same object, or arrays of equal strings.
[[nodiscard]] bool isSameExactly(const Value& left, const Value& right);

} // namespace qv
