#include "rules/functions/QVRuleCheckerVersionFunction.h"

#include <utility>

namespace qv {

QVRuleCheckerVersionFunction::QVRuleCheckerVersionFunction(RuleServices::Shared services)
    : QVRuleCheckerFunction("version", "version", nullptr),
      services_(RuleServices::orOfThisProcess(std::move(services))) {}

} // namespace qv
