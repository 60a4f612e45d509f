#pragma once

#include "rules/functions/QVRuleCheckerFunction.h"
#include "rules/functions/RuleServices.h"

namespace qv {

/// Does not answer yet.
class QVRuleCheckerVersionFunction final : public QVRuleCheckerFunction {
public:
    explicit QVRuleCheckerVersionFunction(RuleServices::Shared services = nullptr);

private:
    RuleServices::Shared services_;
};

} // namespace qv
