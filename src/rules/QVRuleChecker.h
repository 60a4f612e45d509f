#pragma once

#include "platform/foundation/values/Exception.h"
#include "platform/foundation/values/Value.h"
#include "platform/predicate/evaluation/KeyValueCoding.h"
#include "rules/CallScanner.h"
#include "rules/functions/QVRuleCheckerFunction.h"
#include "rules/functions/RuleServices.h"

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace qv {

/// Decides rules: predicates in which "${name(arguments)}" calls a function, and key paths reach
/// functions by their prefix or the named values. Used by one thread at a time; holds no state
/// between runs but its two collections.
class QVRuleChecker final : public KeyValueCoding {
public:
    using Functions = std::vector<std::unique_ptr<QVRuleCheckerFunction>>;

    /// The checker for the whole process, with the default functions; made on first use.
    static QVRuleChecker& sharedChecker();
    /// The default functions ask `services`; null: those of this process.
    static std::unique_ptr<QVRuleChecker>
    ruleCheckerWithDefaultFunctions(bool withDefaults, RuleServices::Shared services = nullptr);
    /// Returns new instances of the functions that rules come with, in their order.
    static Functions defaultFunctions(RuleServices::Shared services = nullptr);

    void addFunction(std::unique_ptr<QVRuleCheckerFunction> function);
    void addFunctions(Functions list);
    /// The first one registered under this name, or a null pointer.
    [[nodiscard]] QVRuleCheckerFunction*
    functionForIdentifier(std::string_view identifier) const noexcept;
    [[nodiscard]] const Functions& functions() const noexcept { return functions_; }

    /// A dictionary of values that rules may name; none until set.
    [[nodiscard]] const std::optional<Value>& kvoValues() const noexcept { return kvoValues_; }
    void setKvoValues(std::optional<Value> values) { kvoValues_ = std::move(values); }

    /// The rule with every call replaced: by a variable of the dictionary that is stored through
    /// `substituteResultsWithVariables`, or, when that is a null pointer, by the result itself.
    /// Throws a PredicateSyntaxError for a rule that is too long, before any call, and an Exception
    /// when the calls take longer than a second.
    [[nodiscard]] std::string preprocessCheckRule(std::string_view rule,
                                                  Value* substituteResultsWithVariables) const;

    /// The value of a rule, a string; false when it has none because parsing or evaluation raised,
    /// or because its calls (but those that need not be quick) and its evaluation take longer than
    /// a second.
    /// `errorOccured`, when given, receives the exception that did, or none. A missing rule is
    /// false, and leaves it alone. Throws for a rule of another class.
    [[nodiscard]] bool runCheck(const std::optional<Value>& rule,
                                std::optional<Exception>* errorOccured);

    /// The value of a single call ("${...}", the text around it ignored) or key path; none when it
    /// has no value; the null object is one. Throws for a key that is not known.
    [[nodiscard]] std::optional<Value> computeFunction(std::string_view text);

    /// The result of one call: its function's, or its "fallbackValue" where there is no function.
    /// Throws an Exception when no time is left for it.
    [[nodiscard]] std::optional<Value> resultForCall(const RuleCall& call, bool returnString,
                                                     predicate::Budget& budget) const;

    std::optional<Value> valueForKey(std::string_view key) override;
    std::optional<Value> valueForKeyPath(std::string_view keyPath,
                                         predicate::Budget& budget) override;
    [[nodiscard]] std::string description() const override { return "<QVRuleChecker>"; }

private:
    [[nodiscard]] std::string preprocess(std::string_view rule, Value* variables,
                                         predicate::Budget& budget) const;
    [[nodiscard]] const Value* kvoValue(std::string_view key) const;
    [[nodiscard]] Value functionList() const;

    Functions functions_;
    std::optional<Value> kvoValues_;
};

} // namespace qv
