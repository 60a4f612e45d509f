#pragma once

#include "platform/foundation/os/CopiedPath.h"
#include "rules/functions/QVRuleCheckerFunction.h"
#include "rules/functions/RuleServices.h"

namespace qv {

/// "filesystem": takes a dictionary. Under "do" the question about the file at "absPath", or else
/// at "bundlePath" in the application "bundleID" (without one: in the running program's main
/// bundle): "exists", "size" in bytes, "date" of the last change of its content, "sha1sum",
/// "md5sum". "prefsValue" and "prefsExists" ask for the preference "key" of "bundleID".
class QVRuleCheckerFilesystemFunction final : public QVRuleCheckerFunction {
public:
    explicit QVRuleCheckerFilesystemFunction(RuleServices::Shared services = nullptr);

    [[nodiscard]] std::optional<Value> resultFor(const std::optional<Value>& parameter,
                                                 bool returnString) override;
    /// Returns false for digests: it takes seconds to read a large file.
    [[nodiscard]] bool mustBeQuick(const std::optional<Value>& parameter) const override;

private:
    [[nodiscard]] std::optional<std::string> pathFrom(const Value& arguments,
                                                      CopiedLink last) const;

    RuleServices::Shared services_;
};

} // namespace qv
