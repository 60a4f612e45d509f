#include "script/QVCatalogScript.h"

#include "platform/foundation/values/Exception.h"

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
class QVCatalogScript::RecordingEnd {
public:
    explicit RecordingEnd(QVCatalogScript& script) noexcept : script_(&script) {}
    RecordingEnd(const RecordingEnd&) = delete;
    RecordingEnd& operator=(const RecordingEnd&) = delete;
    RecordingEnd(RecordingEnd&&) = delete;
    RecordingEnd& operator=(RecordingEnd&&) = delete;
    ~RecordingEnd() {
        if (script_ != nullptr) {
            script_->isRecording = false;
            script_->recordedSteps.clear();
        }
    }
    void disarm() noexcept { script_ = nullptr; }

private:
    QVCatalogScript* script_;
};

bool QVCatalogScript::beginRecording() {
    if (isRecording) {
        return false;
    }
    isRecording = true;
    recordedSteps.clear();
    RecordingEnd end(*this);
    setExecuteWithAdminRights(executeWithAdminRights_);
    setErrorHandlingBehaviour(errorHandlingBehaviour_);
    setKeyValueStorage(keyValueStorage_.value());
    end.disarm();
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
    if (!error || (options & kRetryPriviledged) == 0 || isPriviledged_ || !mayRetry) {
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

Error QVCatalogScript::_recordAndPerformOperationInPriviledgedBlock(OperationsBlock block) {
    if (!beginRecording()) {
        return engineError("Recording of priviledged operation failed");
    }
    RecordingEnd end(*this);
    block();
    const std::optional<Value> steps = endRecording();
    end.disarm();
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
    if (!executeScript) {
        return {};
    }
    const Operation& operation = operationRow(code);
    const StepValues fields = values();
    for (std::size_t i = 0; i < fields.size(); ++i) {
        if (isURLKey(operation.keys[i]) && !fields[i]) {
            return urlError(operation.keys[i], nullptr);
        }
    }
    const auto record = [&] { return std::optional(stepRecord(operation, fields)); };
    return _recordOrExecuteWithRecordingBlock(record, executionBlock, nullptr, operation.options);
}

} // namespace qv
