#include "script/step/OperationTable.h"

#include "platform/foundation/values/Conversions.h"
#include "platform/foundation/values/Exception.h"
#include "script/QVCatalogScript.h"

#include <fmt/core.h>

#include <array>
#include <cassert>

namespace qv {

namespace {

using Script = QVCatalogScript;
using Fields = StepFields;
using enum StepKey;

constexpr std::array kURL = {URL};
constexpr std::array kArg1 = {arg1};
constexpr std::array kArg1To2 = {arg1, arg2};
constexpr std::array kArg1To3 = {arg1, arg2, arg3};
constexpr std::array kArg1To5 = {arg1, arg2, arg3, arg4, arg5};
constexpr std::array kFromTo1To2 = {fromURL, toURL, arg1, arg2};
constexpr std::array kFromTo1 = {fromURL, toURL, arg1};
constexpr std::array kFrom1 = {fromURL, arg1};
constexpr std::array kTo1To2 = {toURL, arg1, arg2};
constexpr std::array kURL1To3 = {URL, arg1, arg2, arg3};
constexpr std::array kURL1To2 = {URL, arg1, arg2};
constexpr std::span<const StepKey> kNothing;

constexpr std::uint8_t kAdminAndRetry = kPriviledgedWithAdminRights | kRetryPriviledged;

std::uint32_t bitsOfInt(const Value* value) { return static_cast<std::uint32_t>(intValue(value)); }

Error replayWait(Script& script, const Fields& step) {
    return script.waitForQuitOfApplicationWithPID(intValue(step.number(arg1)));
}

Error replayLaunch(Script& script, const Fields& step) {
    return script.launchApplicationAtURL(step.url(URL));
}

Error replayRemove(Script& script, const Fields& step) {
    return script.removeItemAtURL(step.url(URL));
}

Error replayTrash(Script& script, const Fields& step) {
    return script.trashItemAtURL(step.url(URL));
}

Error replayMove(Script& script, const Fields& step) {
    return script.moveItemFromURL(step.url(fromURL), step.url(toURL), boolValue(step.number(arg1)),
                                  boolValue(step.number(arg2)));
}

Error replayCopy(Script& script, const Fields& step) {
    return script.copyItemFromURL(step.url(fromURL), step.url(toURL), boolValue(step.number(arg1)),
                                  boolValue(step.number(arg2)));
}

Error replayReplace(Script& script, const Fields& step) {
    return script.replaceItemAtURL(step.url(toURL), step.url(fromURL),
                                   boolValue(step.number(arg1)));
}

Error replayTouch(Script& script, const Fields& step) {
    return script.touchItemAtURL(step.url(URL));
}

Error replayTool(Script& script, const Fields& step) {
    return script.executeTool(step.object(arg1), step.object(arg2), step.object(arg3));
}

Error replayPreferences(Script& script, const Fields& step) {
    return script.setPreferencesForApplicationID(step.object(arg1), step.object(arg2),
                                                 step.object(arg3), step.object(arg4),
                                                 step.object(arg5));
}

Error replaySaveOwner(Script& script, const Fields& step) {
    return script.saveOwnerAndGroupOfURL(step.url(fromURL), step.object(arg1));
}

Error replayApplyOwner(Script& script, const Fields& step) {
    return script.applyOwnerAndGroupOfURL(step.url(toURL), boolValue(step.number(arg1)),
                                          step.object(arg2));
}

Error replayChangeOwnership(Script& script, const Fields& step) {
    return script.changeOwnershipOfItem(step.url(URL), bitsOfInt(step.number(arg1)),
                                        bitsOfInt(step.number(arg2)), boolValue(step.number(arg3)));
}

Error replayChangeMode(Script& script, const Fields& step) {
    return script.changeModeOfItem(
        step.url(URL), static_cast<std::uint16_t>(bitsOfInt(step.number(arg1)) & 0xFFFFU),
        boolValue(step.number(arg2)));
}

Error replayTrusted(Script& script, const Fields& step) {
    return script.makeProcessAXTrusted(step.url(URL));
}

Error replayProgress(Script& script, const Fields& step) {
    script.updateProgressField(bitsOfInt(step.number(arg1)), step.object(arg2));
    return {};
}

Error replayIf(Script& script, const Fields& step) {
    script.beginIfBlock(step.object(arg1));
    return {};
}

Error replayElse(Script& script, const Fields& /*step*/) {
    script.beginElseBlock();
    return {};
}

Error replayEndIf(Script& script, const Fields& /*step*/) {
    script.endIfBlock();
    return {};
}

Error replayErrorBehaviour(Script& script, const Fields& step) {
    script.setErrorHandlingBehaviour(intValue(step.number(arg1)));
    return {};
}

// Only the low 8 bits count, so 256 means no.
Error replayAdminRights(Script& script, const Fields& step) {
    script.setExecuteWithAdminRights((bitsOfInt(step.number(arg1)) & 0xFFU) != 0);
    return {};
}

Error replayStorage(Script& script, const Fields& step) {
    script.setKeyValueStorage(step.object(arg1));
    return {};
}

using enum OperationCode;

constexpr std::array<Operation, kOperationCount> kTable = {{
    {waitForQuitOfApplicationWithPID, "waitForQuitOfApplicationWithPID:", kArg1, kNoOptions, true,
     replayWait},
    {launchApplicationAtURL, "launchApplicationAtURL:", kURL, kNoOptions, true, replayLaunch},
    {removeItemAtURL, "removeItemAtURL:", kURL, kAdminAndRetry, true, replayRemove},
    {trashItemAtURL, "trashItemAtURL:", kURL, kAdminAndRetry, true, replayTrash},
    {moveItemFromURL, "moveItemFromURL:toURL:adaptOwnershipToParent:atomic:", kFromTo1To2,
     kAdminAndRetry, true, replayMove},
    {copyItemFromURL, "copyItemFromURL:toURL:adaptOwnershipToParent:atomic:", kFromTo1To2,
     kAdminAndRetry, true, replayCopy},
    {replaceItemAtURL, "replaceItemAtURL:withItemAtURL:adaptOwnershipToParent:", kFromTo1,
     kAdminAndRetry, true, replayReplace},
    {touchItemAtURL, "touchItemAtURL:", kURL, kAdminAndRetry, true, replayTouch},
    {executeTool, "executeTool:arguments:successReturnCodes:", kArg1To3,
     kPriviledgedWithAdminRights, true, replayTool},
    {setPreferencesForApplicationID, "setPreferencesForApplicationID:key:value:userName:hostName:",
     kArg1To5, kAdminAndRetry, true, replayPreferences},
    {saveOwnerAndGroupOfURL, "saveOwnerAndGroupOfURL:toID:", kFrom1, kNoOptions, true,
     replaySaveOwner},
    {applyOwnerAndGroupOfURL, "applyOwnerAndGroupOfURL:recursive:fromID:", kTo1To2, kAdminAndRetry,
     true, replayApplyOwner},
    {changeOwnershipOfItem, "changeOwnershipOfItem:userID:groupID:recursive:", kURL1To3,
     kAdminAndRetry, true, replayChangeOwnership},
    {changeModeOfItem, "changeModeOfItem:toMode:recursive:", kURL1To2, kAdminAndRetry, true,
     replayChangeMode},
    {makeProcessAXTrusted, "makeProcessAXTrusted:", kURL,
     kPriviledgedWithAdminRights | kAlwaysPriviledged, true, replayTrusted},
    {executeAppleScript, "executeAppleScript:", kArg1, kNoOptions, true, nullptr},
    {updateProgressField, "updateProgressField:withValue:", kArg1To2, kNoOptions, false,
     replayProgress},
    {beginIfBlock, "beginIfBlock:", kArg1, kNoOptions, false, replayIf},
    {beginElseBlock, "beginElseBlock", kNothing, kNoOptions, false, replayElse},
    {endIfBlock, "endIfBlock", kNothing, kNoOptions, false, replayEndIf},
    {setErrorHandlingBehaviour, "setErrorHandlingBehaviour:", kArg1, kNoOptions, false,
     replayErrorBehaviour},
    {setExecuteWithAdminRights, "setExecuteWithAdminRights:", kArg1, kNoOptions, false,
     replayAdminRights},
    {setKeyValueStorage, "setKeyValueStorage:", kArg1, kNoOptions, false, replayStorage},
}};

constexpr bool codesAreIndexes() {
    for (std::size_t i = 0; i < kTable.size(); ++i) {
        if (static_cast<std::size_t>(kTable[i].code) != i) {
            return false;
        }
    }
    return true;
}
static_assert(codesAreIndexes(), "a row stands at the place that its code numbers");

} // namespace

const Operation* operationForCode(std::uint64_t code) noexcept {
    return code < kTable.size() ? &kTable[code] : nullptr;
}

std::string_view operationName(const Operation& operation) noexcept {
    return operation.selector.substr(0, operation.selector.find(':'));
}

const Operation& operationRow(OperationCode code) noexcept {
    return kTable[static_cast<std::size_t>(code)];
}

std::span<const Operation> allOperations() noexcept { return kTable; }

Value stepRecord(const Operation& operation, const StepValues& values) {
    assert(values.size() == operation.keys.size());
    std::vector<std::pair<Value, Value>> pairs;
    pairs.emplace_back(Value::string(stepKeyName(StepKey::operation)),
                       Value::integer(static_cast<std::int64_t>(operation.code)));
    for (std::size_t i = 0; i < values.size(); ++i) {
        const std::optional<Value>& value = values[i];
        if (value) {
            pairs.emplace_back(Value::string(stepKeyName(operation.keys[i])), *value);
        } else if (operation.code != setPreferencesForApplicationID) {
            throw Exception(std::string(exception_name::kInvalidArgument),
                            fmt::format("{} cannot be recorded: \"{}\" of its step is missing",
                                        operationName(operation), stepKeyName(operation.keys[i])));
        }
    }
    return Value::dictionary(std::move(pairs));
}

} // namespace qv
