#pragma once

#include "platform/foundation/values/Error.h"
#include "script/step/StepRecord.h"

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

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

/// When an operation leaves the script that executes it. All are inert on the privileged side.
enum OperationOptions : std::uint8_t {
    kNoOptions = 0,
    kPriviledgedWithAdminRights = 1, ///< hand over when `executeWithAdminRights` is set
    kAlwaysPriviledged = 2,          ///< hand over always
    kRetryPriviledged = 4,           ///< try once more on the privileged side after a failure
};

/// The values of a step record in the order of its row's keys; an absent one leaves its key out.
using StepValues = std::vector<std::optional<Value>>;

/// One row: how an operation is recorded and how its record becomes a call again. To add an
/// operation, add a method and put its call into its row.
struct Operation {
    OperationCode code;
    std::string_view selector;
    std::span<const StepKey> keys; ///< what it records
    std::uint8_t options;          ///< OperationOptions
    bool returnsError;             ///< an operation; otherwise a control step
    /// Converts the fields of a record and calls the method. Null: this version does not have it.
    Error (*replay)(QVCatalogScript& script, const StepFields& fields);
};

/// Null pointer for a number that is no code; negative numbers come as large ones.
[[nodiscard]] const Operation* operationForCode(std::uint64_t code) noexcept;
/// The method's name: "removeItemAtURL".
[[nodiscard]] std::string_view operationName(const Operation& operation) noexcept;
[[nodiscard]] const Operation& operationRow(OperationCode code) noexcept;
[[nodiscard]] std::span<const Operation> allOperations() noexcept;

/// The record of an operation: "operation" and the row's keys with these values. Throws an
/// Exception when one is missing that is not a preference's.
[[nodiscard]] Value stepRecord(const Operation& operation, const StepValues& values);

} // namespace qv
