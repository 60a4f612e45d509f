#include "script/review/plan/PlannedRule.h"

#include "rules/QVRuleChecker.h"
#include "rules/functions/Parameter.h"
#include "script/review/plan/FileSteps.h"

#include <fmt/core.h>

#include <chrono>

namespace qv {

namespace {

/// Stands before a function of rules: notes what its answer rests on, and has files looked for
/// where earlier steps have put them.
class WatchedFunction final : public QVRuleCheckerFunction {
public:
    WatchedFunction(std::unique_ptr<QVRuleCheckerFunction> asked, const RuleScene& scene)
        : QVRuleCheckerFunction(asked->functionID(), asked->functionKeyPathPrefix(), nullptr),
          asked_(std::move(asked)), scene_(scene) {}

    [[nodiscard]] std::optional<Value> resultFor(const std::optional<Value>& parameter,
                                                 bool returnString) override {
        if (functionID() == "filesystem" && parameter && argument(*parameter, "absPath")) {
            return resultForFile(*parameter, returnString);
        }
        noteDoubts(parameter);
        return asked_->resultFor(parameter, returnString);
    }
    [[nodiscard]] bool mustBeQuick(const std::optional<Value>& parameter) const override {
        return asked_->mustBeQuick(parameter);
    }

private:
    void doubt(std::string_view why) {
        scene_.files.noteDoubt(fmt::format("the rule calls {}, {}", functionID(), why));
    }

    void noteDoubts(const std::optional<Value>& parameter) {
        const bool asksMachine = functionID() == "sysctl" || functionID() == "iokit";
        const auto names = [&](std::string_view key) {
            return parameter && argument(*parameter, key).has_value();
        };
        const bool isText = parameter && parameter->is(Value::Kind::string);
        const std::string_view question =
            isText ? parameter->asString()
                   : (parameter ? argument(*parameter, "of").value_or("") : "");
        const bool asksHost =
            question.starts_with("host") || (names("bundlePath") && !names("bundleID"));
        if (scene_.ranProgram) {
            doubt("and a program has run before");
        } else if (functionID() == "objc" || asksHost) {
            doubt("which the service answers for itself");
        } else if (!asksMachine && scene_.hasChanged) {
            doubt("and files have changed before");
        } else if (!asksMachine && !scene_.asRoot && question != "os") {
            doubt("which answers the service and this user differently");
        }
    }

    std::optional<Value> resultForFile(const Value& parameter, bool returnString) {
        const auto action = argument(parameter, "do");
        const std::string path(*argument(parameter, "absPath"));
        if (!path.starts_with('/')) {
            doubt("with a relative path");
            return asked_->resultFor(parameter, returnString);
        }
        SimulatedFiles& files = scene_.files;
        PlannedItem item(files, URL::fileURLWithPath(path));
        const bool isPlaced = item.place().has_value();
        const bool isOfItself = action == "size" || action == "date"; // also if it is a link
        const tl::expected<Location, Error> held =
            item.hold(isOfItself ? LastLink::keep : LastLink::follow);
        if (action == "exists") {
            return Value::boolean(held || (isPlaced && held.error() == Error::posix(ELOOP)));
        }
        if (!held) {
            return std::nullopt;
        }
        const SimulatedItem* found = files.itemAt(*held);
        const bool isKnown = found != nullptr && found->origin && found->modified &&
                             found->doubt.empty() && !found->hardLinked;
        if (!isKnown || (!isOfItself && !scene_.asRoot)) {
            doubt(fmt::format("and {} is not the file that it was", path));
        }
        const std::string origin = found != nullptr ? found->origin.value_or("") : "";
        return asked_->resultFor(Value::dictionary({{"do", Value::string(action.value_or(""))},
                                                    {"absPath", Value::string(origin)}}),
                                 returnString);
    }

    std::unique_ptr<QVRuleCheckerFunction> asked_;
    const RuleScene& scene_;
};

bool holds(QVRuleChecker& checker, const std::optional<Value>& rule, bool lastFailed) {
    checker.setKvoValues(
        Value::dictionary({{"lastStatementExecutionError", Value::integer(lastFailed ? 1 : 0)}}));
    std::optional<Exception> exception;
    return checker.runCheck(rule, &exception);
}

} // namespace

bool plannedRuleHolds(const std::optional<Value>& rule, const RuleScene& scene) {
    constexpr std::chrono::milliseconds kCloseToTheLimit{300}; // of a second
    QVRuleChecker checker;
    for (auto& function : QVRuleChecker::defaultFunctions(scene.services)) {
        checker.addFunction(std::make_unique<WatchedFunction>(std::move(function), scene));
    }
    const auto begin = std::chrono::steady_clock::now();
    const bool answer = holds(checker, rule, scene.lastFailed.value_or(false));
    if (std::chrono::steady_clock::now() - begin > kCloseToTheLimit) {
        scene.files.noteDoubt("the rule may take longer than a rule may");
    }
    if (!scene.lastFailed && holds(checker, rule, true) != answer) {
        scene.files.noteDoubt("the rule asks whether the step before failed");
    }
    return answer;
}

} // namespace qv
