#pragma once

#include "platform/foundation/values/Value.h"
#include "script/step/OperationTable.h"

#include <cstdint>
#include <string>

namespace qv {

/// The operation of a step as a replay finds it: a missing code is 0. Null for an unknown code, and
/// for what is not a step.
[[nodiscard]] const Operation* operationOfStep(const Value& step);

/// Whether a text shows values that may be secret.
enum class Secrets : std::uint8_t { shown, hidden };

/// A step as a person reads it: the text of its operation with the values of its fields. Takes
/// anything, since it shows faulty steps as well; foreign text comes as it is.
[[nodiscard]] std::string stepText(const Value& step, Secrets secrets = Secrets::shown);

} // namespace qv
