#pragma once

#include "platform/foundation/log/RecordSink.h"
#include "platform/foundation/values/Value.h"
#include "script/StepObserver.h"

#include <cstdint>
#include <string_view>

namespace qv {

/// The form in records of values that may be secret: a tool's arguments, a preference's value, an
/// AppleScript.
enum class SecretValues : std::uint8_t {
    digested, ///< their length, and the SHA-256 of their description
    written,  ///< as they are, for the administrator who asked for it
};

/// "changed".
[[nodiscard]] std::string_view outcomeName(StepOutcome outcome) noexcept;

/// The message of a step's record: "step 3 of 10: change the mode of file:///opt/a to 0755:
/// changed".
[[nodiscard]] std::string stepMessage(const Value& step, std::size_t index, std::size_t count,
                                      StepOutcome outcome);

/// Adds what a record says of a step: operation, text, items and values.
void addStep(log::Record& record, const Value& step, const Operation* operation,
             SecretValues secrets);

/// ": TEXT (DOMAIN CODE)", the end of a message about what failed; empty without an error. Of an
/// operation with values that may be secret the words are left out unless those are `written`,
/// since they repeat them. `operation` may be null.
[[nodiscard]] std::string faultText(const Error& error, const Operation* operation,
                                    SecretValues secrets);

/// Adds an error, its words by the same rule.
void addError(log::Record& record, const Error& error, const Operation* operation,
              SecretValues secrets);

} // namespace qv
