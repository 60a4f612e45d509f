#include "rules/functions/QVRuleCheckerObjCFunction.h"

namespace qv {

QVRuleCheckerObjCFunction::QVRuleCheckerObjCFunction()
    : QVRuleCheckerFunction("objc", std::nullopt, nullptr) {}

} // namespace qv
