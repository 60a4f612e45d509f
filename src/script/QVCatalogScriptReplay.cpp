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
        if (operation == nullptr) {
            engine_->executeRecordingLastStatementError = {};
            continue;
        }
        engine_->executeRecordingLastStatementError = engine_->replayStep(*operation, fields);
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

Error ScriptEngine::replayStep(const Operation& operation, const StepFields& fields) {
    const Error error = operation.replay(script_, fields);
    return error ? urlErrorAmong(operation, fields, error) : error;
}

} // namespace qv
