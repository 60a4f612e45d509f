#pragma once

#include "rules/functions/QVRuleCheckerFunction.h"

namespace qv {

/// "objc": whether this very program has a class, and what the class answers. Takes a dictionary:
/// under "do" the question, "classExists", "hasClassSelector" or "hasInstanceSelector"; under
/// "class" the name of the class, under "selector" that of the selector. The answer is false if
/// one of the two that it takes is missing.
class QVRuleCheckerObjCFunction final : public QVRuleCheckerFunction {
public:
    QVRuleCheckerObjCFunction();

    [[nodiscard]] std::optional<Value> resultFor(const std::optional<Value>& parameter,
                                                 bool returnString) override;
};

} // namespace qv
