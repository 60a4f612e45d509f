#pragma once

#include "platform/applescript/running/Context.h"

#include <string>
#include <string_view>

namespace qv::applescript {

// The errors that several parts of the interpreter report, in the platform's words.

[[noreturn]] void fail(std::int64_t number, std::string text);

/// Throws -1700: Can’t make "abc" into type number.
[[noreturn]] void failToMake(const ScriptValue& value, Term type, const Context& context);
/// Throws -1728: Can’t get item 9 of {1, 2}.
[[noreturn]] void failToGet(const ScriptValue& container, Specifier::Step step,
                            const Context& context);
/// Throws -10006: Can’t set item 9 of {1, 2} to 5.
[[noreturn]] void failToSet(const ScriptValue& container, Specifier::Step step,
                            const ScriptValue& value, const Context& context);
/// Throws -1708: {1, 2} doesn’t understand the “f” message.
[[noreturn]] void failToUnderstand(const ScriptValue& receiver, std::string_view message,
                                   const Context& context);
/// -2706.
[[noreturn]] void failTooDeep();

/// A part of a value as an object: `item 9 of {1, 2}`.
[[nodiscard]] ScriptValue partAsObject(const ScriptValue& container, Specifier::Step step);
/// The value that the object is part of; null for an object of an application.
[[nodiscard]] const ScriptValue* rootOf(const Specifier& specifier) noexcept;
[[nodiscard]] inline bool isOfApplication(const ScriptValue& value) noexcept {
    return value.is(ScriptValue::Kind::specifier) && rootOf(value.asSpecifier()) == nullptr;
}

/// A key or a property without a term.
[[nodiscard]] Specifier::Step namedStep(std::string_view name);

} // namespace qv::applescript
