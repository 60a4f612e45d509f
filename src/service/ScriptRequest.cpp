#include "platform/foundation/log/Log.h"
#include "platform/foundation/plist/PropertyList.h"
#include "script/ScriptEngine.h"
#include "script/step/StepText.h"
#include "service/HelperService.h"

#include <fmt/core.h>

#include <algorithm>

namespace qv {

namespace {

struct Outcome {
    bool success = false;
    std::int64_t errorScriptStepIndex = -1;
    Error error;
};

// Finds the step by identity: a list may hold equal steps.
std::int64_t indexOfStep(const Value& steps, const Value* step) {
    if (step == nullptr || !steps.is(Value::Kind::array)) {
        return -1;
    }
    const std::span<const Value> list = steps.asArray();
    const auto place =
        std::ranges::find_if(list, [&](const Value& each) { return each.sameAs(*step); });
    return place == list.end() ? -1 : place - list.begin();
}

// The one place in the service that catches: a script that raises is answered like one that fails.
void replay(const Value& steps, const ProcessIdentity::Shared& requester,
            const PlatformServices& services, RunRecord* record, Outcome& outcome) {
    QVCatalogScript script;
    script.setIsPriviledged(true);
    ScriptEngine::of(script).requester = requester;
    ScriptEngine::of(script).services = services;
    ScriptEngine::of(script).observer = record;
    const Value* failedStep = nullptr;
    bool raised = false;
    try {
        outcome.success = script.executeRecording(steps, &outcome.error, &failedStep);
    } catch (const std::exception& exception) {
        raised = true;
        failedStep = script.currentStep();
        outcome.error = Error::withDescription(kCatalogScriptErrorDomain, 0, exception.what());
        log::write(log::Priority::error,
                   fmt::format("script raised an exception: {}", log::foreign(exception.what())));
    }
    if (!outcome.success) {
        outcome.errorScriptStepIndex = indexOfStep(steps, failedStep);
    }
    if (raised && record != nullptr && failedStep != nullptr) {
        record->stepEnded({.index = static_cast<std::size_t>(outcome.errorScriptStepIndex),
                           .operation = operationOfStep(*failedStep),
                           .outcome = StepOutcome::failed,
                           .error = outcome.error,
                           .ruleFault = {},
                           .end = RunRecord::Clock::now()});
    }
}

} // namespace

Value executeScriptData(std::string_view data, const ProcessIdentity::Shared& requester,
                        const PlatformServices& services, RunRecord* record) {
    Outcome outcome;
    if (!data.empty()) {
        const auto list = PropertyList::propertyListWithData(data);
        if (record != nullptr) {
            record->begin(list ? list->root : Value());
        }
        if (list) {
            replay(list->root, requester, services, record, outcome);
        } else {
            outcome.error = list.error();
        }
    }
    if (record != nullptr) {
        record->end(outcome.success, outcome.errorScriptStepIndex, outcome.error);
    }
    std::vector<std::pair<Value, Value>> result = {
        {Value::string("success"), Value::boolean(outcome.success)},
        {Value::string("errorScriptStepIndex"), Value::integer(outcome.errorScriptStepIndex)}};
    if (outcome.error) {
        result.emplace_back(Value::string("error"), Value::error(outcome.error));
    }
    return Value::dictionary(std::move(result));
}

} // namespace qv
