#pragma once

#include "platform/applescript/running/Context.h"

#include <optional>

namespace qv::applescript {

/// A property that a value has by its class (`class`, `reverse`, `year`, `quoted form` …); none
/// that it does not have.
[[nodiscard]] std::optional<ScriptValue> propertyOf(const ScriptValue& value, Term property,
                                                    const Context& context);

/// `character id 65`, of a number or a list of numbers; -1700 for a number that is not a code
/// point.
[[nodiscard]] ScriptValue textFromCodePoints(const ScriptValue& value, const Context& context);

/// `set month of DATE to …`; false for a property that cannot be set.
[[nodiscard]] bool setDateProperty(double& date, Term property, const ScriptValue& value,
                                   const Context& context);

} // namespace qv::applescript
