#include "platform/foundation/values/Exception.h"
#include "rules/QVRuleChecker.h"
#include "script/QVCatalogScript.h"

namespace qv {

void QVCatalogScript::recordControlStep(OperationCode code, const StepValues& values) {
    recordedSteps.push_back(stepRecord(operationRow(code), values));
}

void QVCatalogScript::updateProgressField(std::uint32_t field,
                                          const std::optional<Value>& withValue) {
    if (!executeScript) {
        return;
    }
    if (isRecording) {
        recordControlStep(OperationCode::updateProgressField, {Value::integer(field), withValue});
    } else if (updateProgressBlock_) {
        updateProgressBlock_(*this, field, withValue);
    }
}

// The markers of a block are never gated: they keep track of the nesting inside skipped branches.

void QVCatalogScript::beginIfBlock(const std::optional<Value>& rule) {
    if (isRecording) {
        recordControlStep(OperationCode::beginIfBlock, {rule});
        return;
    }
    if (!executeScript) {
        ++ignoreIfBlocksCount;
        return;
    }
    if (rule && !rule->is(Value::Kind::string)) {
        refuseField(StepKey::arg1, "a string, a rule", &*rule);
    }
    const auto checker = QVRuleChecker::ruleCheckerWithDefaultFunctions(true);
    const bool failed = static_cast<bool>(executeRecordingLastStatementError_);
    checker->setKvoValues(
        Value::dictionary({{"lastStatementExecutionError", Value::integer(failed ? 1 : 0)}}));
    std::optional<Exception> exception; // a rule that cannot be evaluated does not hold
    executeScript = checker->runCheck(rule, &exception);
}

void QVCatalogScript::beginElseBlock() {
    if (isRecording) {
        recordControlStep(OperationCode::beginElseBlock, {});
    } else if (ignoreIfBlocksCount == 0) {
        executeScript = !executeScript;
    }
}

void QVCatalogScript::endIfBlock() {
    if (isRecording) {
        recordControlStep(OperationCode::endIfBlock, {});
    } else if (ignoreIfBlocksCount >= 1) {
        --ignoreIfBlocksCount;
    } else {
        executeScript = true;
    }
}

void QVCatalogScript::setErrorHandlingBehaviour(std::int32_t behaviour) {
    if (!executeScript) {
        return;
    }
    if (isRecording) {
        recordControlStep(OperationCode::setErrorHandlingBehaviour,
                          {Value::integer(static_cast<std::uint32_t>(behaviour))});
    } else {
        errorHandlingBehaviour_ = behaviour;
    }
}

void QVCatalogScript::setExecuteWithAdminRights(bool flag) {
    if (!executeScript) {
        return;
    }
    if (isRecording) {
        recordControlStep(OperationCode::setExecuteWithAdminRights, {Value::boolean(flag)});
    } else {
        executeWithAdminRights_ = flag;
    }
}

void QVCatalogScript::setKeyValueStorage(const std::optional<Value>& storage) {
    if (!executeScript) {
        return;
    }
    if (isRecording) {
        // The current storage, not the argument: the one caller while recording passes it anyway.
        recordControlStep(OperationCode::setKeyValueStorage, {keyValueStorage_.value()});
    } else {
        keyValueStorage_ = KeyValueStorage(storage);
    }
}

} // namespace qv
