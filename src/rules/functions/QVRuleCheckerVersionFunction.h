#pragma once

#include "rules/functions/QVRuleCheckerFunction.h"
#include "rules/functions/RuleServices.h"

namespace qv {

/// "version": the version of the system ("os"), of an application (its bundle identifier, or
/// "AppName." and its name), of the running program ("hostApplication", "hostApplicationShort"),
/// and the parts of the computer's model ("computerIdentifier", "computerModel", "computerVersion",
/// "computerVersionMajor", "computerVersionMinor"). "kernel" has no value.
///
/// Takes the question as a string, or a dictionary: under "of" the question, here also
/// "application" with the identifier under "bundleID" and any value under "useShortVersion" for
/// CFBundleShortVersionString instead of CFBundleVersion; versions to compare with under
/// "greaterThan", "equalTo" and "lessThan". The value becomes true if one of these comparisons
/// holds, and stays the version otherwise: it is never false.
class QVRuleCheckerVersionFunction final : public QVRuleCheckerFunction {
public:
    explicit QVRuleCheckerVersionFunction(RuleServices::Shared services = nullptr);

    /// The result is, with `returnString`, the text of the value, "(null)" for none; but none
    /// without a computer that could have a model.
    [[nodiscard]] std::optional<Value> resultFor(const std::optional<Value>& parameter,
                                                 bool returnString) override;

    /// The property list in the first resource of type 'plst' of the file's resource fork. A
    /// fault in it is logged.
    [[nodiscard]] static std::optional<Value>
    plistResourceDictionaryForFile(const std::string& path);

private:
    [[nodiscard]] const Value& osRelease();
    [[nodiscard]] std::optional<Value> applicationVersion(std::string_view target,
                                                          std::string_view key) const;

    RuleServices::Shared services_;
    std::optional<Value> osRelease_; // once it was asked for
};

} // namespace qv
