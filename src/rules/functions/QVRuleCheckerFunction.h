#pragma once

#include "platform/foundation/values/Value.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace qv {

/// A named evaluator of rules: for a call "${functionID(...)}", and, when it has a key-path prefix,
/// for a key path that begins with it.
class QVRuleCheckerFunction {
public:
    using FunctionBlock = std::function<std::optional<Value>(
        QVRuleCheckerFunction& function, const std::optional<Value>& parameter, bool returnString)>;

    QVRuleCheckerFunction() = default;
    QVRuleCheckerFunction(std::string functionID, std::optional<std::string> functionKeyPathPrefix,
                          FunctionBlock functionBlock);
    QVRuleCheckerFunction(const QVRuleCheckerFunction&) = delete;
    QVRuleCheckerFunction& operator=(const QVRuleCheckerFunction&) = delete;
    QVRuleCheckerFunction(QVRuleCheckerFunction&&) = delete;
    QVRuleCheckerFunction& operator=(QVRuleCheckerFunction&&) = delete;
    virtual ~QVRuleCheckerFunction() = default;

    static std::unique_ptr<QVRuleCheckerFunction> function();
    static std::unique_ptr<QVRuleCheckerFunction>
    functionWithFunctionID(std::string functionID, std::optional<std::string> functionKeyPathPrefix,
                           FunctionBlock functionBlock);

    /// `parameter` is none, a string, or a dictionary of strings and null objects; with
    /// `returnString` a string is asked for. None is "no value": the parameter does not fit, or
    /// there is no answer. Here the block's value; subclasses never call the block.
    [[nodiscard]] virtual std::optional<Value> resultFor(const std::optional<Value>& parameter,
                                                         bool returnString);

    /// Whether the time that a call takes counts as that of the rule, which may take a second.
    [[nodiscard]] virtual bool mustBeQuick(const std::optional<Value>& /*parameter*/) const {
        return true;
    }

    /// The name in a call; case counts.
    [[nodiscard]] const std::string& functionID() const noexcept { return functionID_; }
    void setFunctionID(std::string functionID) { functionID_ = std::move(functionID); }
    /// The first component of the key paths that it answers; none when no key path reaches it.
    [[nodiscard]] const std::optional<std::string>& functionKeyPathPrefix() const noexcept {
        return functionKeyPathPrefix_;
    }
    void setFunctionKeyPathPrefix(std::optional<std::string> prefix) {
        functionKeyPathPrefix_ = std::move(prefix);
    }
    [[nodiscard]] const FunctionBlock& functionBlock() const noexcept { return functionBlock_; }
    void setFunctionBlock(FunctionBlock block) { functionBlock_ = std::move(block); }

private:
    std::string functionID_;
    std::optional<std::string> functionKeyPathPrefix_;
    FunctionBlock functionBlock_;
};

} // namespace qv
