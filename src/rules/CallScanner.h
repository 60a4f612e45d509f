#pragma once

#include "platform/foundation/values/Value.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace qv {

/// A function call as it stands in a rule: "${name(key=value;word)}".
struct RuleCall {
    std::optional<std::string> name;
    /// Strings and null objects by key; none when not one argument was ended by ";" or ")".
    std::optional<Value> arguments;

    /// The parameter of a function: none, the one bare word, or the arguments. A lone "key=value"
    /// is lost: functions with keyed arguments take at least two.
    [[nodiscard]] std::optional<Value> parameter() const;
};

inline constexpr std::string_view kCallBegin = "${";

/// Reads the call that begins `text`, behind its "${". Returns the number of bytes that it takes
/// including its "}"; none, and nothing read, when it has no end.
[[nodiscard]] std::optional<std::size_t> scanCall(std::string_view text, RuleCall& call);

} // namespace qv
