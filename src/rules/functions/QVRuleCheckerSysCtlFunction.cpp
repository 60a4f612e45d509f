#include "rules/functions/QVRuleCheckerSysCtlFunction.h"

#include <utility>

namespace qv {

QVRuleCheckerSysCtlFunction::QVRuleCheckerSysCtlFunction(RuleServices::Shared services)
    : QVRuleCheckerFunction("sysctl", "sysctl", nullptr),
      services_(RuleServices::orOfThisProcess(std::move(services))) {}

} // namespace qv
