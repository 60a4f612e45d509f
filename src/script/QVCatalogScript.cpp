#include "script/QVCatalogScript.h"

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

bool QVCatalogScript::beginRecording() {
    if (isRecording) {
        return false;
    }
    isRecording = true;
    recordedSteps.clear();
    setExecuteWithAdminRights(executeWithAdminRights_);
    setErrorHandlingBehaviour(errorHandlingBehaviour_);
    setKeyValueStorage(keyValueStorage_.value());
    return true;
}

std::optional<Value> QVCatalogScript::endRecording() {
    if (!isRecording) {
        return std::nullopt;
    }
    isRecording = false;
    return Value::array(std::exchange(recordedSteps, {}));
}

Error QVCatalogScript::_recordOrExecuteWithRecordingBlock(RecordingBlock recordingBlock,
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
    const bool admin = executeWithAdminRights_ && (options & kPriviledgedWithAdminRights) != 0;
    if (!isPriviledged_ && (admin || (options & kAlwaysPriviledged) != 0)) {
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
        (static_cast<unsigned>(errorHandlingBehaviour_) & kNoPriviledgedRetry) == 0;
    if (error && (options & kRetryPriviledged) != 0 && !isPriviledged_ && mayRetry) {
        const Error retried = _recordOrExecuteWithRecordingBlock(recordingBlock, executionBlock,
                                                                 priviledgedExecutionBlock,
                                                                 options | kAlwaysPriviledged);
        return retried ? error : Error();
    }
    return error;
}

Error QVCatalogScript::_recordAndPerformOperationInPriviledgedBlock(OperationsBlock block) {
    if (!beginRecording()) {
        return engineError("Recording of priviledged operation failed");
    }
    block();
    const std::optional<Value> steps = endRecording();
    if (!steps) {
        return engineError("No priviledged operations recorded");
    }
    if (!priviledgedExecutionBlock_) {
        return engineError("No block specified for priviledged execution");
    }
    Error error;
    priviledgedExecutionBlock_(*this, *steps, &error, nullptr);
    return error;
}

Error QVCatalogScript::perform(OperationCode code, FunctionView<StepValues()> values,
                               ExecutionBlock executionBlock) {
    const Operation& operation = operationRow(code);
    const auto record = [&]() -> std::optional<Value> { return stepRecord(operation, values()); };
    return _recordOrExecuteWithRecordingBlock(record, executionBlock, nullptr, operation.options);
}

} // namespace qv
