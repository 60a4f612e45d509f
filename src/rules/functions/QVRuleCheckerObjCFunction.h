#pragma once

#include "rules/functions/QVRuleCheckerFunction.h"

namespace qv {

/// Does not answer yet.
class QVRuleCheckerObjCFunction final : public QVRuleCheckerFunction {
public:
    QVRuleCheckerObjCFunction();
};

} // namespace qv
