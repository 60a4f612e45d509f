#include "rules/functions/QVRuleCheckerApplicationFunction.h"

#include <utility>

namespace qv {

QVRuleCheckerApplicationFunction::QVRuleCheckerApplicationFunction(RuleServices::Shared services)
    : QVRuleCheckerFunction("application", "application", nullptr),
      services_(RuleServices::orOfThisProcess(std::move(services))) {}

} // namespace qv
