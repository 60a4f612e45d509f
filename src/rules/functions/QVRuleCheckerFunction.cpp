#include "rules/functions/QVRuleCheckerFunction.h"

#include "platform/system/ClassRegistry.h"

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

QV_REGISTER_CLASS(
    QVRuleCheckerFunction, NSObject, QV_CLASS_METHOD(function, "function"),
    QV_CLASS_METHOD(functionWithFunctionID,
                    "functionWithFunctionID:functionKeyPathPrefix:functionBlock:"),
    QV_METHOD_AS("initWithFunctionID:functionKeyPathPrefix:functionBlock:",
                 std::constructible_from<Self, std::string, std::optional<std::string>,
                                         Self::FunctionBlock>),
    QV_METHOD(resultFor, "resultFor:returnString:"), QV_METHOD(functionID, "functionID"),
    QV_METHOD(setFunctionID, "setFunctionID:"),
    QV_METHOD(functionKeyPathPrefix, "functionKeyPathPrefix"),
    QV_METHOD(setFunctionKeyPathPrefix, "setFunctionKeyPathPrefix:"),
    QV_METHOD(functionBlock, "functionBlock"), QV_METHOD(setFunctionBlock, "setFunctionBlock:"));

} // namespace qv
