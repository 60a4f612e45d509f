#include "rules/QVRuleChecker.h"

#include "platform/foundation/log/Log.h"
#include "platform/predicate/Predicate.h"
#include "platform/system/ClassRegistry.h"
#include "rules/RulePreprocessor.h"
#include "rules/functions/QVRuleCheckerApplicationFunction.h"
#include "rules/functions/QVRuleCheckerFilesystemFunction.h"
#include "rules/functions/QVRuleCheckerIOKitFunction.h"
#include "rules/functions/QVRuleCheckerObjCFunction.h"
#include "rules/functions/QVRuleCheckerSysCtlFunction.h"
#include "rules/functions/QVRuleCheckerVersionFunction.h"

#include <fmt/core.h>

#include <algorithm>
#include <iterator>
#include <utility>

namespace qv {

QVRuleChecker& QVRuleChecker::sharedChecker() {
    static const std::unique_ptr<QVRuleChecker> shared = ruleCheckerWithDefaultFunctions(true);
    return *shared;
}

std::unique_ptr<QVRuleChecker>
QVRuleChecker::ruleCheckerWithDefaultFunctions(bool withDefaults, RuleServices::Shared services) {
    auto checker = std::make_unique<QVRuleChecker>();
    if (withDefaults) {
        checker->addFunctions(defaultFunctions(std::move(services)));
    }
    return checker;
}

QVRuleChecker::Functions QVRuleChecker::defaultFunctions(RuleServices::Shared services) {
    services = RuleServices::orOfThisProcess(std::move(services));
    constexpr std::size_t kCount = 6;
    Functions functions;
    functions.reserve(kCount);
    functions.push_back(std::make_unique<QVRuleCheckerVersionFunction>(services));
    functions.push_back(std::make_unique<QVRuleCheckerSysCtlFunction>(services));
    functions.push_back(std::make_unique<QVRuleCheckerObjCFunction>());
    functions.push_back(std::make_unique<QVRuleCheckerApplicationFunction>(services));
    functions.push_back(std::make_unique<QVRuleCheckerFilesystemFunction>(services));
    functions.push_back(std::make_unique<QVRuleCheckerIOKitFunction>());
    return functions;
}

void QVRuleChecker::addFunction(std::unique_ptr<QVRuleCheckerFunction> function) {
    functions_.push_back(std::move(function));
}

void QVRuleChecker::addFunctions(Functions list) {
    functions_.insert(functions_.end(), std::make_move_iterator(list.begin()),
                      std::make_move_iterator(list.end()));
}

QVRuleCheckerFunction*
QVRuleChecker::functionForIdentifier(std::string_view identifier) const noexcept {
    const auto found = std::ranges::find_if(
        functions_, [&](const auto& function) { return function->functionID() == identifier; });
    return found == functions_.end() ? nullptr : found->get();
}

std::string QVRuleChecker::preprocessCheckRule(std::string_view rule,
                                               Value* substituteResultsWithVariables) const {
    predicate::Budget budget;
    return preprocess(rule, substituteResultsWithVariables, budget);
}

std::string QVRuleChecker::preprocess(std::string_view rule, Value* variables,
                                      predicate::Budget& budget) const {
    Predicate::requireLength(rule);
    return replaceCalls(
        rule,
        [&](const RuleCall& call) { return resultForCall(call, variables == nullptr, budget); },
        variables);
}

bool QVRuleChecker::runCheck(const std::optional<Value>& rule,
                             std::optional<Exception>* errorOccured) {
    if (!rule) {
        return false;
    }
    if (errorOccured != nullptr) {
        errorOccured->reset();
    }
    if (!rule->is(Value::Kind::string)) {
        throw Exception(std::string(exception_name::kInvalidArgument), "A rule must be a string");
    }
    try {
        Value variables;
        predicate::Budget budget;
        const std::string text = preprocess(rule->asString(), &variables, budget);
        return Predicate::predicateWithFormat(text).evaluateWithObject(*this, variables, budget);
    } catch (const Exception& exception) {
        if (errorOccured != nullptr) {
            errorOccured->emplace(exception);
        }
        log::NSLog(
            fmt::format("-[QVRuleChecker runCheck:errorOccured:]: caught exception: {}; rule: {}",
                        exception.reason(), log::foreign(rule->asString())));
    } catch (...) { // NOLINT(bugprone-empty-catch): such a rule is false and no more is said of it
    }
    return false;
}

std::optional<Value> QVRuleChecker::computeFunction(std::string_view text) {
    if (!text.starts_with('$')) {
        predicate::Budget budget;
        return valueForKeyPath(text, budget);
    }
    Value variables;
    static_cast<void>(preprocessCheckRule(text, &variables));
    const DictionaryView results = variables.asDictionary();
    if (results.size() > 1) {
        log::NSLog(fmt::format("Error processing function (more than one result): {}", text));
    }
    return results.size() == 1 ? std::optional(results.value(0)) : std::nullopt;
}

std::optional<Value> QVRuleChecker::resultForCall(const RuleCall& call, bool returnString,
                                                  predicate::Budget& budget) const {
    budget.requireTime();
    if (QVRuleCheckerFunction* function = call.name ? functionForIdentifier(*call.name) : nullptr) {
        const std::optional<Value> parameter = call.parameter();
        std::optional<predicate::Budget::Pause> pause;
        if (!function->mustBeQuick(parameter)) {
            pause.emplace(budget);
        }
        return function->resultFor(parameter, returnString);
    }
    const Value* fallback = call.arguments ? call.arguments->find("fallbackValue") : nullptr;
    return fallback == nullptr ? std::nullopt : std::optional(*fallback);
}

const Value* QVRuleChecker::kvoValue(std::string_view key) const {
    return kvoValues_ ? kvoValues_->find(key) : nullptr;
}

// The checker's own property, seen through key-value lookup.
Value QVRuleChecker::functionList() const {
    std::vector<Value> list;
    for (const auto& function : functions_) {
        std::vector<std::pair<Value, Value>> properties;
        properties.emplace_back(Value::string("functionID"), Value::string(function->functionID()));
        if (const auto& prefix = function->functionKeyPathPrefix()) {
            properties.emplace_back(Value::string("functionKeyPathPrefix"), Value::string(*prefix));
        }
        list.push_back(Value::dictionary(std::move(properties)));
    }
    return Value::array(std::move(list));
}

std::optional<Value> QVRuleChecker::valueForKey(std::string_view key) {
    if (const Value* value = kvoValue(key)) {
        return *value;
    }
    if (key == "functions") {
        return functionList();
    }
    if (key == "kvoValues") {
        return kvoValues_;
    }
    if (key == "locked") { // a flag that nothing sets
        return Value::boolean(false);
    }
    if (key == "self") {
        return self();
    }
    if (key == "description") {
        return Value::string(description());
    }
    raiseUndefinedKey(fmt::format("No value is known under the key {}", log::foreign(key)), self(),
                      key);
}

std::optional<Value> QVRuleChecker::valueForKeyPath(std::string_view keyPath,
                                                    predicate::Budget& budget) {
    const std::size_t dot = keyPath.find('.');
    if (dot != std::string_view::npos) {
        const std::string_view prefix = keyPath.substr(0, dot);
        const auto found = std::ranges::find_if(functions_, [&](const auto& function) {
            return function->functionKeyPathPrefix() == prefix;
        });
        if (found != functions_.end()) {
            return (*found)->resultFor(Value::string(keyPath.substr(dot + 1)), false);
        }
    }
    if (const Value* value = kvoValue(keyPath)) {
        return *value;
    }
    return KeyValueCoding::valueForKeyPath(keyPath, budget);
}

QV_REGISTER_CLASS(
    QVRuleChecker, NSObject, QV_CLASS_METHOD(sharedChecker, "sharedChecker"),
    QV_CLASS_METHOD(ruleCheckerWithDefaultFunctions, "ruleCheckerWithDefaultFunctions:"),
    QV_CLASS_METHOD(defaultFunctions, "defaultFunctions"), QV_METHOD(addFunction, "addFunction:"),
    QV_METHOD(addFunctions, "addFunctions:"),
    QV_METHOD(functionForIdentifier, "functionForIdentifier:"), QV_METHOD(functions, "functions"),
    QV_METHOD(kvoValues, "kvoValues"), QV_METHOD(setKvoValues, "setKvoValues:"),
    QV_METHOD(preprocessCheckRule, "preprocessCheckRule:substituteResultsWithVariables:"),
    QV_METHOD(runCheck, "runCheck:errorOccured:"), QV_METHOD(computeFunction, "computeFunction:"),
    QV_METHOD(valueForKey, "valueForKey:"), QV_METHOD(valueForKeyPath, "valueForKeyPath:"));

} // namespace qv
