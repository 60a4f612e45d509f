#pragma once

#include "rules/CallScanner.h"

#include <functional>
#include <string>
#include <string_view>

namespace qv {

/// Gives the result of a call, none when it has no value. An exception of its own ends the
/// preprocessing.
using CallEvaluator = std::function<std::optional<Value>(const RuleCall& call)>;

/// The rule with every call replaced, in order and in linear time. With `variables` a result
/// becomes
/// "$fncN", N the number of the call, and an entry "fncN" of the dictionary that is stored there;
/// without, results must be strings and stand in the text, where a call that they complete is
/// evaluated too. A call without a result becomes "NULL". A call without an end is logged and, with
/// all behind it, left as it stands.
[[nodiscard]] std::string replaceCalls(std::string_view rule, const CallEvaluator& evaluate,
                                       Value* variables);

} // namespace qv
