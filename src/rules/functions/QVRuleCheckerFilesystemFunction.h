#pragma once

#include "rules/functions/QVRuleCheckerFunction.h"
#include "rules/functions/RuleServices.h"

namespace qv {

/// Does not answer yet.
class QVRuleCheckerFilesystemFunction final : public QVRuleCheckerFunction {
public:
    explicit QVRuleCheckerFilesystemFunction(RuleServices::Shared services = nullptr);

private:
    RuleServices::Shared services_;
};

} // namespace qv
