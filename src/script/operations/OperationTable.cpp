#include "script/step/OperationTable.h"

#include "script/QVCatalogScript.h"
#include "script/operations/Fields.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <functional>
#include <tuple>
#include <type_traits>

namespace qv {

namespace {

using Script = QVCatalogScript;
using enum OperationCode;
using namespace field;

template <typename... Values, typename Result, typename... Parameters>
constexpr bool takes(Result (Script::* /*method*/)(Parameters...)) {
    return std::is_same_v<std::tuple<std::remove_cvref_t<Parameters>...>, std::tuple<Values...>>;
}
template <typename... Values, typename... Parameters>
constexpr bool takes(Error (* /*function*/)(Script&, Parameters...)) {
    return std::is_same_v<std::tuple<std::remove_cvref_t<Parameters>...>, std::tuple<Values...>>;
}

template <auto method, typename... Values> Error call(Script& script, const Values&... values) {
    static_assert(takes<Values...>(method), "the kinds of the fields are those of the parameters");
    if constexpr (std::is_void_v<std::invoke_result_t<decltype(method), Script&, Values...>>) {
        std::invoke(method, script, values...);
        return {};
    } else {
        return std::invoke(method, script, values...);
    }
}

template <auto method, const Field&... fields>
Error replay(Script& script, [[maybe_unused]] const StepFields& step) {
    return call<method>(script, step.get<fields.kind>(fields.key)...);
}

template <const Field&... fields>
constexpr std::array<Field, sizeof...(fields)> kFieldsOf = {fields...};

/// A row whose fields are the parameters of its method.
template <auto method, const Field&... fields>
constexpr Operation row(OperationCode code, std::string_view name, std::string_view selector,
                        unsigned options, Effect effect, std::string_view text) {
    return {.code = code,
            .name = name,
            .selector = selector,
            .fields = kFieldsOf<fields...>,
            .options = static_cast<std::uint8_t>(options),
            .effect = effect,
            .text = text,
            .replay = replay<method, fields...>};
}

// The record names the new item first.
Error replaceItem(Script& script, const std::optional<qv::URL>& newItem,
                  const std::optional<qv::URL>& oldItem, bool adaptOwnershipToParent) {
    return script.replaceItemAtURL(oldItem, newItem, adaptOwnershipToParent);
}

constexpr unsigned kAdminAndRetry = kPriviledgedWithAdminRights | kRetryPriviledged;

constexpr std::array<Operation, kOperationCount> kTable = {{
    row<&Script::waitForQuitOfApplicationWithPID, kProcess>(
        waitForQuitOfApplicationWithPID, "waitForQuit", "waitForQuitOfApplicationWithPID:",
        kNoOptions, Effect::reads, "wait until {process} has quit"),
    row<&Script::launchApplicationAtURL, kApplicationItem>(launchApplicationAtURL, "launch",
                                                           "launchApplicationAtURL:", kNoOptions,
                                                           Effect::starts, "launch {application}"),
    row<&Script::removeItemAtURL, kItem>(removeItemAtURL, "remove", "removeItemAtURL:",
                                         kAdminAndRetry, Effect::removes, "remove {item}"),
    row<&Script::trashItemAtURL, kItem>(trashItemAtURL, "trash", "trashItemAtURL:", kAdminAndRetry,
                                        Effect::removes, "trash {item}"),
    row<&Script::moveItemFromURL, kFrom, kTo, kAdapt, kAtomic>(
        moveItemFromURL, "move", "moveItemFromURL:toURL:adaptOwnershipToParent:atomic:",
        kAdminAndRetry, Effect::changes, "move {from} to {to}"),
    row<&Script::copyItemFromURL, kFrom, kTo, kAdapt, kAtomic>(
        copyItemFromURL, "copy", "copyItemFromURL:toURL:adaptOwnershipToParent:atomic:",
        kAdminAndRetry, Effect::creates, "copy {from} to {to}"),
    row<replaceItem, kNewItem, kOldItem, kAdapt>(
        replaceItemAtURL, "replace", "replaceItemAtURL:withItemAtURL:adaptOwnershipToParent:",
        kAdminAndRetry, Effect::changes, "replace {old item} by {new item}"),
    row<&Script::touchItemAtURL, kItem>(touchItemAtURL, "touch", "touchItemAtURL:", kAdminAndRetry,
                                        Effect::changes, "touch {item}"),
    row<&Script::executeTool, kTool, kArguments, kExitCodes>(
        executeTool, "runTool", "executeTool:arguments:successReturnCodes:",
        kPriviledgedWithAdminRights, Effect::opaque, "run {tool}"),
    row<&Script::setPreferencesForApplicationID, kApplication, kPreferenceKey, kPreference, kUser,
        kHost>(setPreferencesForApplicationID, "setPreference",
               "setPreferencesForApplicationID:key:value:userName:hostName:", kAdminAndRetry,
               Effect::changes, "set the preference {key} of {application}"),
    row<&Script::saveOwnerAndGroupOfURL, kItemToSave, kSaveAs>(
        saveOwnerAndGroupOfURL, "saveOwner", "saveOwnerAndGroupOfURL:toID:", kNoOptions,
        Effect::reads, "save owner and group of {item} as {identifier}"),
    row<&Script::applyOwnerAndGroupOfURL, kItemToOwn, kOwnerRecursive, kSavedAs>(
        applyOwnerAndGroupOfURL, "applyOwner", "applyOwnerAndGroupOfURL:recursive:fromID:",
        kAdminAndRetry, Effect::changes, "give {item} the owner and group saved as {identifier}"),
    row<&Script::changeOwnershipOfItem, kItem, kUserID, kGroupID, kIDsRecursive>(
        changeOwnershipOfItem, "changeOwner", "changeOwnershipOfItem:userID:groupID:recursive:",
        kAdminAndRetry, Effect::changes, "change owner and group of {item} to {user} and {group}"),
    row<&Script::changeModeOfItem, kItem, kMode, kModeRecursive>(
        changeModeOfItem, "changeMode", "changeModeOfItem:toMode:recursive:", kAdminAndRetry,
        Effect::changes, "change the mode of {item} to {mode}"),
    row<&Script::makeProcessAXTrusted, kProgram>(
        makeProcessAXTrusted, "trustProgram",
        "makeProcessAXTrusted:", kPriviledgedWithAdminRights | kAlwaysPriviledged, Effect::changes,
        "grant {program} accessibility trust"),
    row<&Script::executeAppleScript, kAppleScript>(executeAppleScript, "runAppleScript",
                                                   "executeAppleScript:", kNoOptions,
                                                   Effect::opaque, "run the AppleScript {source}"),
    row<&Script::updateProgressField, kProgressField, kProgress>(
        updateProgressField, "reportProgress", "updateProgressField:withValue:", kNoOptions,
        Effect::reads, "report {value} as progress in field {field}"),
    row<&Script::beginIfBlock, kRule>(beginIfBlock, "if", "beginIfBlock:", kNoOptions,
                                      Effect::decides, "if {rule}"),
    row<&Script::beginElseBlock>(beginElseBlock, "else", "beginElseBlock", kNoOptions,
                                 Effect::decides, "else"),
    row<&Script::endIfBlock>(endIfBlock, "endIf", "endIfBlock", kNoOptions, Effect::decides,
                             "end if"),
    row<&Script::setErrorHandlingBehaviour, kErrorBehaviour>(
        setErrorHandlingBehaviour, "setErrorBehaviour", "setErrorHandlingBehaviour:", kNoOptions,
        Effect::decides, "set the error behaviour to {behaviour}"),
    row<&Script::setExecuteWithAdminRights, kAdminRights>(
        setExecuteWithAdminRights, "setAdminRights", "setExecuteWithAdminRights:", kNoOptions,
        Effect::decides, "set admin rights to {admin rights}"),
    row<&Script::setKeyValueStorage, kStorage>(setKeyValueStorage, "setStorage",
                                               "setKeyValueStorage:", kNoOptions, Effect::decides,
                                               "set the key-value storage to {storage}"),
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

constexpr bool textsNameFields() {
    for (const Operation& operation : kTable) {
        std::string_view rest = operation.text;
        for (std::size_t open = rest.find('{'); open != rest.npos; open = rest.find('{')) {
            const std::string_view name = rest.substr(open + 1, rest.find('}') - open - 1);
            if (std::ranges::find(operation.fields, name, &Field::name) == operation.fields.end()) {
                return false;
            }
            rest.remove_prefix(rest.find('}') + 1);
        }
    }
    return true;
}
static_assert(textsNameFields(), "a name in braces is that of a field");

constexpr bool fieldsAreInOrder() {
    return std::ranges::all_of(kTable, [](const Operation& operation) {
        return std::ranges::is_sorted(operation.fields, {}, &Field::key);
    });
}
static_assert(fieldsAreInOrder(), "a record holds the fields in the order of their keys");

} // namespace

const Operation* operationForCode(std::uint64_t code) noexcept {
    return code < kTable.size() ? &kTable[code] : nullptr;
}

const Operation* operationNamed(std::string_view name) noexcept {
    const auto* row = std::ranges::find(kTable, name, &Operation::name);
    return row == kTable.end() ? nullptr : row;
}

std::string_view operationName(const Operation& operation) noexcept {
    return operation.selector.substr(0, operation.selector.find(':'));
}

const Operation& operationRow(OperationCode code) noexcept {
    return kTable[static_cast<std::size_t>(code)];
}

std::span<const Operation> allOperations() noexcept { return kTable; }

} // namespace qv
