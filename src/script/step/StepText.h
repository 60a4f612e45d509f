#pragma once

#include "platform/foundation/values/Value.h"

#include <string>

namespace qv {

/// How a person reads a step: the text of its operation with the values of its fields. Takes
/// anything, since it shows faulty steps as well; foreign text comes as it is.
[[nodiscard]] std::string stepText(const Value& step);

} // namespace qv
