#include "platform/foundation/values/Exception.h"
#include "script/ScriptEngine.h"

#include <fmt/core.h>

namespace qv {

namespace {

// An operation takes a text that is not a URL for a missing URL. Only the record has the text.
Error urlErrorAmong(const Operation& operation, const StepFields& fields, const Error& error) {
    for (const Field& field : operation.fields) {
        const Value* text = field.kind == FieldKind::item ? fields[field.key] : nullptr;
        if (text != nullptr) {
            if (Error better = urlError(field.key, text)) {
                return better;
            }
        }
    }
    return error;
}

StepOutcome outcomeOf(const Operation& operation, std::optional<StepOutcome> noted) {
    switch (operation.effect) {
    case Effect::reads:
    case Effect::decides:
        return StepOutcome::unchanged;
    case Effect::starts:
    case Effect::opaque:
        return StepOutcome::done;
    default:
        return noted.value_or(StepOutcome::changed);
    }
}

} // namespace

bool QVCatalogScript::executeRecording(const Value& steps, Error* error,
                                       const Value** errorScriptStep) {
    if (error != nullptr) {
        *error = {};
    }
    if (errorScriptStep != nullptr) {
        *errorScriptStep = nullptr;
    }
    engine_->executeRecordingLastStatementError = {};
    engine_->currentStep = nullptr;
    if (!steps.is(Value::Kind::array)) {
        throw Exception(
            std::string(exception_name::kInvalidArgument),
            fmt::format("a script must be an array of steps, not {}", kindText(steps.kind())));
    }
    StepReader reader;
    for (const Value& step : steps.asArray()) {
        engine_->currentStep = &step;
        StepFields fields = reader.read(step);
        if (!engine_->executeScript) {
            fields.skip();
        }
        const Operation* operation = operationForCode(fields.operation());
        engine_->executeRecordingLastStatementError =
            engine_->observer != nullptr
                ? engine_->replayObserved(static_cast<std::size_t>(&step - steps.asArray().data()),
                                          operation, fields)
                : engine_->replayStep(operation, fields);
        if (engine_->executeRecordingLastStatementError && errorHandlingBehaviour() == 0) {
            if (error != nullptr) {
                *error = engine_->executeRecordingLastStatementError;
            }
            if (errorScriptStep != nullptr) {
                *errorScriptStep = &step;
            }
            engine_->currentStep = nullptr;
            return false;
        }
    }
    engine_->currentStep = nullptr;
    return true;
}

Error ScriptEngine::replayStep(const Operation* operation, const StepFields& fields) {
    if (operation == nullptr) {
        return {};
    }
    const Error error = operation->replay(script_, fields);
    return error ? urlErrorAmong(*operation, fields, error) : error;
}

Error ScriptEngine::replayObserved(std::size_t index, const Operation* operation,
                                   const StepFields& fields) {
    const bool wasSkipping = !executeScript;
    noted.reset();
    ruleFault.clear();
    Error error = replayStep(operation, fields);
    StepOutcome outcome = StepOutcome::failed;
    if (!error) {
        const bool isSkipped = operation == nullptr || (wasSkipping && !executeScript);
        outcome = isSkipped ? StepOutcome::skipped : outcomeOf(*operation, noted);
    }
    observer->stepEnded({.index = index,
                         .operation = operation,
                         .outcome = outcome,
                         .error = error,
                         .ruleFault = ruleFault,
                         .end = std::chrono::steady_clock::now()});
    return error;
}

} // namespace qv
