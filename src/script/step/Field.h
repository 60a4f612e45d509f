#pragma once

#include "platform/foundation/values/Error.h"
#include "platform/foundation/values/URL.h"
#include "platform/foundation/values/Value.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace qv {

/// The keys of a step record, in the order in which a record holds them after "operation".
enum class StepKey : std::uint8_t { fromURL, toURL, URL, arg1, arg2, arg3, arg4, arg5, operation };
inline constexpr std::size_t kStepKeyCount = 9;
[[nodiscard]] std::string_view stepKeyName(StepKey key) noexcept;

/// The meaning of a field's value. A number may be a text that is read as one.
enum class FieldKind : std::uint8_t {
    item,           ///< an absolute file URL
    toolPath,       ///< text
    arguments,      ///< an array of texts, or the null object
    exitCodes,      ///< any value; carried, not consulted
    mode,           ///< number; its low 16 bits
    userID,         ///< number; its low 32 bits, of which all set leave the owner alone
    groupID,        ///< the same for the group
    flag,           ///< number, or a text such as YES
    adminFlag,      ///< number; set if one of its low 8 bits is
    processID,      ///< number
    errorBehaviour, ///< number; 0 stops at the first error
    progressField,  ///< number; its low 32 bits
    rule,           ///< text
    application,    ///< text, the identifier of an application
    preferenceKey,  ///< text
    user,           ///< text, a name or a designation of the preferences
    host,           ///< the same for a host
    appleScript,    ///< text
    identifier,     ///< any value but an error; names a saved owner
    value,          ///< any value
    storage,        ///< a dictionary
};
inline constexpr std::size_t kFieldKindCount = 21;

/// The treatment of a missing value when its step is carried out.
enum class Missing : std::uint8_t {
    refused, ///< code 4 of NSCocoaErrorDomain, before anything is recorded or done
    raises,  ///< an Exception that names the key
    fails,   ///< an error of the operation's own
    zero,    ///< 0, or no
    none,    ///< nothing: the operation does without
};

/// The treatment of a missing value when its step is recorded; a missing item is always refused.
enum class InRecord : std::uint8_t {
    required,   ///< an Exception
    leftOut,    ///< no entry
    nullObject, ///< the null object
};

/// One field of an operation.
struct Field {
    StepKey key;
    std::string_view name; ///< for people, as the operation's text names it
    FieldKind kind;
    Missing missing;
    InRecord inRecord = InRecord::required;

    /// The key in scripts that people write: "adaptOwnership" for "adapt ownership".
    [[nodiscard]] std::string writtenKey() const;
};

/// The class of a value, and what a value of another class becomes.
enum class FieldForm : std::uint8_t {
    url,    ///< text; an Exception, and code 4 of NSCocoaErrorDomain for a text that is not a URL
    text,   ///< an Exception
    number, ///< or text; an Exception, and 0 for a text that is not a number
    texts,  ///< an array of texts or the null object; an Exception
    dictionary, ///< an Exception of the operation that uses it
    any,        ///< taken as it is
};

struct FieldKindInfo {
    FieldKind kind;
    std::string_view name;   ///< "file URL"
    std::string_view wanted; ///< the kind that an Exception asks for: "a string, a file URL"
    FieldForm form;
    bool maybeSecret = false; ///< kept out of records
};
[[nodiscard]] const FieldKindInfo& infoOf(FieldKind kind) noexcept;

/// The fault of a field that is missing (a null pointer) or holds something else than `wanted`
/// ("a string").
[[noreturn]] void refuseField(StepKey key, std::string_view wanted, const Value* found);

/// Throws the Exception of a value that is missing or wrong, if that is what it becomes.
void checkField(const Field& field, const std::optional<Value>& value);

/// The URL that a text says; none if there is no text (a null pointer) or it is not a URL.
[[nodiscard]] std::optional<URL> urlFromString(const Value* text);

/// Returns code 4 of NSCocoaErrorDomain for a field whose URL is missing (a null pointer), or whose
/// text is not a URL; empty for a URL.
[[nodiscard]] Error urlError(StepKey key, const Value* text);

} // namespace qv
