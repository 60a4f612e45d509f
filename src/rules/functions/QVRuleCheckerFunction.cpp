#include "rules/functions/QVRuleCheckerFunction.h"

#include <utility>

namespace qv {

QVRuleCheckerFunction::QVRuleCheckerFunction(std::string functionID,
                                             std::optional<std::string> functionKeyPathPrefix,
                                             FunctionBlock functionBlock)
    : functionID_(std::move(functionID)), functionKeyPathPrefix_(std::move(functionKeyPathPrefix)),
      functionBlock_(std::move(functionBlock)) {}

std::unique_ptr<QVRuleCheckerFunction> QVRuleCheckerFunction::function() {
    return std::make_unique<QVRuleCheckerFunction>();
}

std::unique_ptr<QVRuleCheckerFunction>
QVRuleCheckerFunction::functionWithFunctionID(std::string functionID,
                                              std::optional<std::string> functionKeyPathPrefix,
                                              FunctionBlock functionBlock) {
    return std::make_unique<QVRuleCheckerFunction>(
        std::move(functionID), std::move(functionKeyPathPrefix), std::move(functionBlock));
}

std::optional<Value> QVRuleCheckerFunction::resultFor(const std::optional<Value>& parameter,
                                                      bool returnString) {
    return functionBlock_ ? functionBlock_(*this, parameter, returnString) : std::nullopt;
}

} // namespace qv
