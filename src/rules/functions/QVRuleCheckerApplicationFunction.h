#pragma once

#include "rules/functions/QVRuleCheckerFunction.h"
#include "rules/functions/RuleServices.h"

namespace qv {

/// "application": takes a string "ACTION.TARGET", where TARGET is a bundle identifier, or
/// "AppName." and a name. "installed": whether there is such an application; "path": its path;
/// "isBundledInPackage": whether a folder above it is a package, which throws an Exception without
/// the application. "hostApplicationPath." (with any target, and not without the dot) is the path
/// of the running program's main bundle, and "hostApplicationBundleID" its identifier.
class QVRuleCheckerApplicationFunction final : public QVRuleCheckerFunction {
public:
    explicit QVRuleCheckerApplicationFunction(RuleServices::Shared services = nullptr);

    [[nodiscard]] std::optional<Value> resultFor(const std::optional<Value>& parameter,
                                                 bool returnString) override;

private:
    RuleServices::Shared services_;
};

} // namespace qv
