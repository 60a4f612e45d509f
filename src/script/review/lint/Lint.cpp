#include "script/review/lint/Lint.h"

#include "script/review/lint/Checks.h"
#include "script/review/lint/ItemReview.h"
#include "script/review/lint/OwnerReview.h"

#include <fmt/format.h>

#include <array>

namespace qv {

namespace {

using namespace review;

/// Takes the steps one after the other.
class Linter {
public:
    explicit Linter(const LintOptions& options) : options_(options) {}

    std::vector<Finding> run(std::span<const Value> steps) {
        for (std::size_t i = 0; i < steps.size(); ++i) {
            if (steps[i].is(Value::Kind::dictionary)) {
                ReviewedStep step{i, &steps[i], operationOfStep(steps[i]), &options_};
                for (const StepKey key : {StepKey::fromURL, StepKey::toURL, StepKey::URL}) {
                    step.paths[static_cast<std::size_t>(key)] =
                        pathOfItem(steps[i].find(stepKeyName(key)));
                }
                take(step, steps);
            } else {
                findings_.add(Check::notAStep, {i},
                              {fmt::format("the step is {}, which stops the script",
                                           kindText(steps[i].kind())),
                               "write a dictionary"});
            }
        }
        blocks_.end({options_.asksMachine, options_.isRecorded}, findings_);
        return std::move(findings_).inOrder();
    }

private:
    // The operation that a replay finds, but none for a code that is missing or not a number.
    static const Operation* operationOfStep(const Value& step) {
        const Value* code = step.find(stepKeyName(StepKey::operation));
        const auto number = code == nullptr ? std::nullopt : wholeNumber(*code);
        return number ? operationForCode(static_cast<std::uint64_t>(*number)) : nullptr;
    }

    void take(const ReviewedStep& step, std::span<const Value> steps) {
        reviewShape(step, findings_);
        if (step.operation != nullptr) {
            reviewModes(step, findings_);
            reviewTool(step, findings_);
            reviewValues(step, findings_);
            items_.take(step);
            owners_.take(step);
        }
        if (step.is(OperationCode::setExecuteWithAdminRights) &&
            !(step.index == 0 && beginsAsRecorded(steps))) {
            findings_.add(Check::idleAdminRights, {step.index},
                          {"the service has admin rights whatever the step says",
                           "leave it out of scripts that are sent"});
        }
        blocks_.take(step, findings_);
    }

    // A recorder begins with its settings.
    static bool beginsAsRecorded(std::span<const Value> steps) {
        static constexpr std::array kSettings = {OperationCode::setExecuteWithAdminRights,
                                                 OperationCode::setErrorHandlingBehaviour,
                                                 OperationCode::setKeyValueStorage};
        for (std::size_t i = 0; i < kSettings.size(); ++i) {
            const Operation* operation = i < steps.size() && steps[i].is(Value::Kind::dictionary)
                                             ? operationOfStep(steps[i])
                                             : nullptr;
            if (operation == nullptr || operation->code != kSettings[i]) {
                return false;
            }
        }
        return true;
    }

    LintOptions options_;
    Findings findings_;
    BlockReview blocks_;
    ItemReview items_{blocks_, findings_};
    OwnerReview owners_{blocks_, findings_};
};

std::vector<Finding> oneFinding(Check check, Explanation explanation) {
    Findings findings;
    findings.add(check, {}, std::move(explanation));
    return std::move(findings).inOrder();
}

} // namespace

std::vector<Finding> lint(const Value& steps, const LintOptions& options) {
    if (!steps.is(Value::Kind::array)) {
        return oneFinding(Check::notAScript, {fmt::format("a script is an array of steps, not {}",
                                                          kindText(steps.kind())),
                                              "put the steps into an array"});
    }
    if (steps.asArray().empty()) {
        return oneFinding(Check::emptyScript, {"the script has no steps", "put steps into it"});
    }
    return Linter(options).run(steps.asArray());
}

} // namespace qv
