#pragma once

#include "platform/applescript/values/OutsideWorld.h"
#include "platform/foundation/values/Error.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace qv::applescript::world {

// The values that commands are given, as the world needs them, and the errors that it answers with.

[[noreturn]] void fail(std::int64_t number, std::string brief, std::string_view application = {});
/// Throws “Can’t get OBJECT.” (-1728)
[[noreturn]] void failToGet(std::string_view object, std::string_view application = {});
/// Throws “Can’t make VALUE into type TYPE.” (-1700)
[[noreturn]] void failToConvert(const ScriptValue& value, Term type);
/// Throws “X got an error: Can’t continue WORDS.” (-1708)
[[noreturn]] void failToUnderstand(std::string_view words, std::string_view application = {});
/// Throws “File PATH wasn’t found.” (-43), and the like for other errors of files and launches.
/// `path`: POSIX.
[[noreturn]] void failWithFile(std::int64_t number, std::string_view path,
                               std::string_view application = {});
[[noreturn]] void failWithFile(const Error& error, std::string_view path,
                               std::string_view application = {});
/// The number of the platform for an errno.
[[nodiscard]] std::int64_t fileErrorNumber(int errorNumber) noexcept;

/// A text, or a number, boolean, constant, class or file as one; else -1700.
[[nodiscard]] std::string textFrom(const ScriptValue& value);
[[nodiscard]] double numberFrom(const ScriptValue& value);
[[nodiscard]] bool booleanFrom(const ScriptValue& value);
/// The elements of a list, or the one value.
[[nodiscard]] std::vector<ScriptValue> listFrom(const ScriptValue& value);

/// A value as an error text shows it: a text in quotes, a list or record by its kind.
[[nodiscard]] std::string shown(const ScriptValue& value);

/// The direct object; -1701 where there is none.
[[nodiscard]] const ScriptValue& directOf(const Command& command);
/// These return none, empty and false for a parameter that is not given.
[[nodiscard]] std::optional<std::string> textParameter(const Command& command, Term label);
[[nodiscard]] bool flagParameter(const Command& command, Term label, bool otherwise = false);

/// Makes any bytes text: those that are not UTF-8 become U+FFFD.
[[nodiscard]] std::string validText(std::string bytes);
/// Whether two texts are the same but for case.
[[nodiscard]] bool isSameText(std::string_view left, std::string_view right);
/// A text as it is compared: without case.
[[nodiscard]] std::u16string comparable(std::string_view text);

} // namespace qv::applescript::world
