#pragma once

#include "script/step/StepFields.h"

#include <cstdint>
#include <span>
#include <string_view>

namespace qv {

class QVCatalogScript;

/// The codes of the step records' "operation".
enum class OperationCode : std::uint8_t {
    waitForQuitOfApplicationWithPID = 0,
    launchApplicationAtURL = 1,
    removeItemAtURL = 2,
    trashItemAtURL = 3,
    moveItemFromURL = 4,
    copyItemFromURL = 5,
    replaceItemAtURL = 6,
    touchItemAtURL = 7,
    executeTool = 8,
    setPreferencesForApplicationID = 9,
    saveOwnerAndGroupOfURL = 10,
    applyOwnerAndGroupOfURL = 11,
    changeOwnershipOfItem = 12,
    changeModeOfItem = 13,
    makeProcessAXTrusted = 14,
    executeAppleScript = 15,
    updateProgressField = 16,
    beginIfBlock = 17,
    beginElseBlock = 18,
    endIfBlock = 19,
    setErrorHandlingBehaviour = 20,
    setExecuteWithAdminRights = 21,
    setKeyValueStorage = 22,
};
inline constexpr std::uint64_t kOperationCount = 23;

/// The cases in which an operation leaves the script that executes it. All are inert on the
/// privileged side.
enum OperationOptions : std::uint8_t {
    kNoOptions = 0,
    kPriviledgedWithAdminRights = 1, ///< hand over when `executeWithAdminRights` is set
    kAlwaysPriviledged = 2,          ///< hand over always
    kRetryPriviledged = 4,           ///< try once more on the privileged side after a failure
};

/// The effect of an operation on the machine.
enum class Effect : std::uint8_t {
    reads,   ///< changes nothing
    creates, ///< makes what was not there, and overwrites nothing
    changes,
    removes,
    starts,  ///< a program that goes on
    decides, ///< decides which of the following steps are carried out, and how
    opaque,  ///< anything that the started program does
};

/// One row: all that is known of an operation. To add one, add a method and a row.
struct Operation {
    OperationCode code;
    std::string_view name; ///< in scripts that people write: "remove"
    std::string_view selector;
    std::span<const Field> fields; ///< the fields that it records, in the order of their keys
    std::uint8_t options;          ///< OperationOptions
    Effect effect;
    std::string_view text; ///< its text for people, "{name}" for a field: "copy {from} to {to}"
    /// Takes the fields of a record and calls the method. Null: this version does not have it.
    Error (*replay)(QVCatalogScript& script, const StepFields& fields);
};

// The rows stand in operations/OperationTable.cpp, above the methods that they call.

/// Returns a null pointer for a number that is not a code; negative numbers come as large ones.
[[nodiscard]] const Operation* operationForCode(std::uint64_t code) noexcept;
/// Returns a null pointer for a text that is not the name of a row.
[[nodiscard]] const Operation* operationNamed(std::string_view name) noexcept;
/// The method's name: "removeItemAtURL".
[[nodiscard]] std::string_view operationName(const Operation& operation) noexcept;
[[nodiscard]] const Operation& operationRow(OperationCode code) noexcept;
[[nodiscard]] std::span<const Operation> allOperations() noexcept;

} // namespace qv
