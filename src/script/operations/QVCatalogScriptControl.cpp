#include "platform/foundation/values/Exception.h"
#include "rules/QVRuleChecker.h"
#include "script/ScriptEngine.h"
#include "script/operations/Fields.h"

namespace qv {

void ScriptEngine::recordControlStep(OperationCode code,
                                     std::initializer_list<StepArgument> arguments) {
    recordedSteps.push_back(stepRecord(operationRow(code), arguments));
}

void QVCatalogScript::updateProgressField(std::uint32_t field,
                                          const std::optional<Value>& withValue) {
    if (!engine_->executeScript) {
        return;
    }
    if (engine_->isRecording) {
        engine_->recordControlStep(OperationCode::updateProgressField, {field, withValue});
    } else if (engine_->updateProgressBlock) {
        engine_->updateProgressBlock(*this, field, withValue);
    }
}

// The markers of a block are never gated: they keep track of the nesting inside skipped branches.

void QVCatalogScript::beginIfBlock(const std::optional<Value>& rule) {
    if (engine_->isRecording) {
        engine_->recordControlStep(OperationCode::beginIfBlock, {rule});
        return;
    }
    if (!engine_->executeScript) {
        ++engine_->ignoreIfBlocksCount;
        return;
    }
    checkField(field::kRule, rule);
    const auto checker =
        QVRuleChecker::ruleCheckerWithDefaultFunctions(true, engine_->ruleServices());
    const bool failed = static_cast<bool>(executeRecordingLastStatementError());
    checker->setKvoValues(
        Value::dictionary({{"lastStatementExecutionError", Value::integer(failed ? 1 : 0)}}));
    std::optional<Exception> exception; // a rule that cannot be evaluated does not hold
    engine_->executeScript = checker->runCheck(rule, &exception);
    if (exception) {
        engine_->ruleFault = exception->reason();
    }
}

void QVCatalogScript::beginElseBlock() {
    if (engine_->isRecording) {
        engine_->recordControlStep(OperationCode::beginElseBlock, {});
    } else if (engine_->ignoreIfBlocksCount == 0) {
        engine_->executeScript = !engine_->executeScript;
    }
}

void QVCatalogScript::endIfBlock() {
    if (engine_->isRecording) {
        engine_->recordControlStep(OperationCode::endIfBlock, {});
    } else if (engine_->ignoreIfBlocksCount >= 1) {
        --engine_->ignoreIfBlocksCount;
    } else {
        engine_->executeScript = true;
    }
}

void QVCatalogScript::setErrorHandlingBehaviour(std::int32_t behaviour) {
    if (!engine_->executeScript) {
        return;
    }
    if (engine_->isRecording) {
        engine_->recordControlStep(OperationCode::setErrorHandlingBehaviour,
                                   {static_cast<std::uint32_t>(behaviour)});
    } else {
        engine_->errorHandlingBehaviour = behaviour;
    }
}

void QVCatalogScript::setExecuteWithAdminRights(bool flag) {
    if (!engine_->executeScript) {
        return;
    }
    if (engine_->isRecording) {
        engine_->recordControlStep(OperationCode::setExecuteWithAdminRights, {flag});
    } else {
        engine_->executeWithAdminRights = flag;
    }
}

void QVCatalogScript::setKeyValueStorage(const std::optional<Value>& storage) {
    if (!engine_->executeScript) {
        return;
    }
    if (engine_->isRecording) {
        // The record holds the current storage, which the one caller while recording passes as
        // well.
        engine_->recordControlStep(OperationCode::setKeyValueStorage, {keyValueStorage()});
    } else {
        engine_->keyValueStorage = KeyValueStorage(storage);
    }
}

} // namespace qv
