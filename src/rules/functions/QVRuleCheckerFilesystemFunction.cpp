#include "rules/functions/QVRuleCheckerFilesystemFunction.h"

#include <utility>

namespace qv {

QVRuleCheckerFilesystemFunction::QVRuleCheckerFilesystemFunction(RuleServices::Shared services)
    : QVRuleCheckerFunction("filesystem", std::nullopt, nullptr),
      services_(RuleServices::orOfThisProcess(std::move(services))) {}

} // namespace qv
