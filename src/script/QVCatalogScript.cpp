#include "script/QVCatalogScript.h"

#include "platform/foundation/values/Exception.h"
#include "platform/system/ClassRegistry.h"
#include "script/ScriptEngine.h"

#include <utility>

namespace qv {

namespace {

// Forbids the privileged retry of a failed operation.
constexpr unsigned kNoPriviledgedRetry = 0x100;

Error engineError(std::string_view text) {
    return Error::withDescription(kCatalogScriptErrorDomain, 0, text);
}

} // namespace

std::unique_ptr<QVCatalogScript> QVCatalogScript::oneLineScript() {
    return std::make_unique<QVCatalogScript>();
}

/// Ends a recording when an exception leaves the scope.
class ScriptEngine::RecordingEnd {
public:
    explicit RecordingEnd(ScriptEngine& engine) noexcept : engine_(&engine) {}
    RecordingEnd(const RecordingEnd&) = delete;
    RecordingEnd& operator=(const RecordingEnd&) = delete;
    RecordingEnd(RecordingEnd&&) = delete;
    RecordingEnd& operator=(RecordingEnd&&) = delete;
    ~RecordingEnd() {
        if (engine_ != nullptr) {
            engine_->isRecording = false;
            engine_->recordedSteps.clear();
        }
    }
    void disarm() noexcept { engine_ = nullptr; }

private:
    ScriptEngine* engine_;
};

QVCatalogScript::QVCatalogScript() : engine_(std::make_unique<ScriptEngine>(*this)) {}
QVCatalogScript::~QVCatalogScript() = default;

bool QVCatalogScript::isPriviledged() const noexcept { return engine_->isPriviledged; }
void QVCatalogScript::setIsPriviledged(bool isPriviledged) noexcept {
    engine_->isPriviledged = isPriviledged;
}
std::int32_t QVCatalogScript::errorHandlingBehaviour() const noexcept {
    return engine_->errorHandlingBehaviour;
}
const Error& QVCatalogScript::executeRecordingLastStatementError() const noexcept {
    return engine_->executeRecordingLastStatementError;
}
bool QVCatalogScript::executeWithAdminRights() const noexcept {
    return engine_->executeWithAdminRights;
}
std::optional<Value> QVCatalogScript::keyValueStorage() const {
    return engine_->keyValueStorage.value();
}
const QVCatalogScript::PriviledgedExecutionBlock&
QVCatalogScript::priviledgedExecutionBlock() const noexcept {
    return engine_->priviledgedExecutionBlock_;
}
void QVCatalogScript::setPriviledgedExecutionBlock(PriviledgedExecutionBlock block) {
    engine_->priviledgedExecutionBlock_ = std::move(block);
}
const QVCatalogScript::UpdateProgressBlock& QVCatalogScript::updateProgressBlock() const noexcept {
    return engine_->updateProgressBlock;
}
void QVCatalogScript::setUpdateProgressBlock(UpdateProgressBlock block) {
    engine_->updateProgressBlock = std::move(block);
}
const Value* QVCatalogScript::currentStep() const noexcept { return engine_->currentStep; }

bool QVCatalogScript::beginRecording() {
    if (engine_->isRecording) {
        return false;
    }
    engine_->isRecording = true;
    engine_->recordedSteps.clear();
    ScriptEngine::RecordingEnd end(*engine_);
    setExecuteWithAdminRights(executeWithAdminRights());
    setErrorHandlingBehaviour(errorHandlingBehaviour());
    setKeyValueStorage(keyValueStorage());
    end.disarm();
    return true;
}

std::optional<Value> QVCatalogScript::endRecording() {
    if (!engine_->isRecording) {
        return std::nullopt;
    }
    engine_->isRecording = false;
    return Value::array(std::exchange(engine_->recordedSteps, {}));
}

Error ScriptEngine::_recordOrExecuteWithRecordingBlock(RecordingBlock recordingBlock,
                                                       ExecutionBlock executionBlock,
                                                       OperationsBlock priviledgedExecutionBlock,
                                                       unsigned options) {
    if (!executeScript) {
        return {};
    }
    if (isRecording) {
        if (recordingBlock) {
            if (std::optional<Value> step = recordingBlock()) {
                recordedSteps.push_back(std::move(*step));
            }
        }
        return {};
    }
    const bool admin = executeWithAdminRights && (options & kPriviledgedWithAdminRights) != 0;
    if (!isPriviledged && (admin || (options & kAlwaysPriviledged) != 0)) {
        if (priviledgedExecutionBlock) {
            return _recordAndPerformOperationInPriviledgedBlock(priviledgedExecutionBlock);
        }
        const auto again = [&] {
            static_cast<void>(_recordOrExecuteWithRecordingBlock(recordingBlock, executionBlock,
                                                                 nullptr, options));
        };
        return _recordAndPerformOperationInPriviledgedBlock(again);
    }
    Error error = executionBlock ? executionBlock() : Error();
    const bool mayRetry =
        (static_cast<unsigned>(errorHandlingBehaviour) & kNoPriviledgedRetry) == 0;
    if (!error || (options & kRetryPriviledged) == 0 || isPriviledged || !mayRetry) {
        return error;
    }
    try {
        const Error retried = _recordOrExecuteWithRecordingBlock(recordingBlock, executionBlock,
                                                                 priviledgedExecutionBlock,
                                                                 options | kAlwaysPriviledged);
        return retried ? error : Error();
    } catch (const Exception&) {
        return error; // an operation that cannot be recorded is not cured
    }
}

Error ScriptEngine::_recordAndPerformOperationInPriviledgedBlock(OperationsBlock block) {
    if (!script_.beginRecording()) {
        return engineError("Recording of priviledged operation failed");
    }
    RecordingEnd end(*this);
    block();
    const std::optional<Value> steps = script_.endRecording();
    end.disarm();
    if (!steps) {
        return engineError("No priviledged operations recorded");
    }
    if (!priviledgedExecutionBlock_) {
        return engineError("No block specified for priviledged execution");
    }
    Error error;
    priviledgedExecutionBlock_(script_, *steps, &error, nullptr);
    return error;
}

Error ScriptEngine::perform(OperationCode code, std::initializer_list<StepArgument> arguments,
                            ExecutionBlock executionBlock) {
    if (!executeScript) {
        return {};
    }
    const Operation& operation = operationRow(code);
    if (Error error = missingURL(operation, arguments)) {
        return error;
    }
    const auto record = [&] { return std::optional(stepRecord(operation, arguments)); };
    return _recordOrExecuteWithRecordingBlock(record, executionBlock, nullptr, operation.options);
}

QV_REGISTER_CLASS(
    QVCatalogScript, NSObject, QV_CLASS_METHOD(oneLineScript, "oneLineScript"),
    QV_CLASS_METHOD(trashPathForURL, "trashPathForURL:volumeHasTrash:"),
    QV_CLASS_METHOD(copyAndExtractFile, "copyAndExtractFile:toTemporaryLocation:onSameVolumeAs:"),
    QV_CLASS_METHOD(createTemporaryFolder, "createTemporaryFolder:onSameVolumeAs:"),
    QV_CLASS_METHOD(extractDMG,
                    "extractDMG:extractedRoot:findBundleWithIdentifier:returnFoundBundleLocation:"),
    QV_CLASS_METHOD(extractZIP, "extractZIP:toLocation:"),
    QV_CLASS_METHOD(findBundleWithIdentifier, "findBundleWithIdentifier:inFolder:"),
    QV_METHOD(isPriviledged, "isPriviledged"), QV_METHOD(setIsPriviledged, "setIsPriviledged:"),
    QV_METHOD(errorHandlingBehaviour, "errorHandlingBehaviour"),
    QV_METHOD(setErrorHandlingBehaviour, "setErrorHandlingBehaviour:"),
    QV_METHOD(executeRecordingLastStatementError, "executeRecordingLastStatementError"),
    QV_METHOD(executeWithAdminRights, "executeWithAdminRights"),
    QV_METHOD(setExecuteWithAdminRights, "setExecuteWithAdminRights:"),
    QV_METHOD(keyValueStorage, "keyValueStorage"),
    QV_METHOD(setKeyValueStorage, "setKeyValueStorage:"),
    QV_METHOD(priviledgedExecutionBlock, "priviledgedExecutionBlock"),
    QV_METHOD(setPriviledgedExecutionBlock, "setPriviledgedExecutionBlock:"),
    QV_METHOD(updateProgressBlock, "updateProgressBlock"),
    QV_METHOD(setUpdateProgressBlock, "setUpdateProgressBlock:"),
    QV_METHOD(beginRecording, "beginRecording"), QV_METHOD(endRecording, "endRecording"),
    QV_METHOD(executeRecording, "executeRecording:error:errorScriptStep:"),
    QV_METHOD(removeItemAtURL, "removeItemAtURL:"), QV_METHOD(trashItemAtURL, "trashItemAtURL:"),
    QV_METHOD(moveItemFromURL, "moveItemFromURL:toURL:adaptOwnershipToParent:atomic:"),
    QV_METHOD(copyItemFromURL, "copyItemFromURL:toURL:adaptOwnershipToParent:atomic:"),
    QV_METHOD(replaceItemAtURL, "replaceItemAtURL:withItemAtURL:adaptOwnershipToParent:"),
    QV_METHOD(touchItemAtURL, "touchItemAtURL:"),
    QV_METHOD(saveOwnerAndGroupOfURL, "saveOwnerAndGroupOfURL:toID:"),
    QV_METHOD(applyOwnerAndGroupOfURL, "applyOwnerAndGroupOfURL:recursive:fromID:"),
    QV_METHOD_AS(
        "readOwnershipOfItem:userID:groupID:",
        requires { Self::readOwnershipOfItem(std::nullopt, nullptr, nullptr); }),
    QV_METHOD(changeOwnershipOfItem, "changeOwnershipOfItem:userID:groupID:recursive:"),
    QV_METHOD_AS(
        "readModeOfItem:mode:", requires { Self::readModeOfItem(std::nullopt, nullptr); }),
    QV_METHOD(changeModeOfItem, "changeModeOfItem:toMode:recursive:"),
    QV_METHOD(waitForQuitOfApplicationWithPID, "waitForQuitOfApplicationWithPID:"),
    QV_METHOD(launchApplicationAtURL, "launchApplicationAtURL:"),
    QV_METHOD(makeProcessAXTrusted, "makeProcessAXTrusted:"),
    QV_METHOD(setPreferencesForApplicationID,
              "setPreferencesForApplicationID:key:value:userName:hostName:"),
    QV_METHOD(executeTool, "executeTool:arguments:successReturnCodes:"),
    QV_METHOD(executeAppleScript, "executeAppleScript:"),
    QV_METHOD(updateProgressField, "updateProgressField:withValue:"),
    QV_METHOD(beginIfBlock, "beginIfBlock:"), QV_METHOD(beginElseBlock, "beginElseBlock"),
    QV_METHOD(endIfBlock, "endIfBlock"));

} // namespace qv
