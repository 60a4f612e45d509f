#pragma once

#include "rules/functions/QVRuleCheckerFunction.h"
#include "rules/functions/RuleServices.h"

namespace qv {

/// Does not answer yet.
class QVRuleCheckerSysCtlFunction final : public QVRuleCheckerFunction {
public:
    explicit QVRuleCheckerSysCtlFunction(RuleServices::Shared services = nullptr);

private:
    RuleServices::Shared services_;
};

} // namespace qv
