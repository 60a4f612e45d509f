#pragma once

#include "platform/system/KernelParameters.h"
#include "rules/functions/QVRuleCheckerFunction.h"
#include "rules/functions/RuleServices.h"

#include <functional>
#include <optional>
#include <string_view>

namespace qv {

/// "sysctl": the value of a kernel parameter. Takes a string: "string", "integer" or
/// "unsignedInteger", a dot, and the name of the parameter; any other string with a dot is the name
/// of a parameter whose text is asked for. An integer is given as its decimal text if a string is
/// asked for.
class QVRuleCheckerSysCtlFunction final : public QVRuleCheckerFunction {
public:
    /// Gives the bytes of a parameter, none if it is unknown.
    using Reader = std::function<std::optional<KernelParameter>(std::string_view name)>;

    explicit QVRuleCheckerSysCtlFunction(const RuleServices::Shared& services = nullptr);
    explicit QVRuleCheckerSysCtlFunction(Reader reader);

    [[nodiscard]] std::optional<Value> resultFor(const std::optional<Value>& parameter,
                                                 bool returnString) override;

    /// The bytes up to the first NUL; none if the parameter is unknown, or they are not UTF-8.
    [[nodiscard]] static std::optional<Value> sysCtlStringValueForName(std::string_view name);
    /// Returns none if the parameter is unknown, or has not 1, 2, 4 or 8 bytes.
    [[nodiscard]] static std::optional<Value> sysCtlIntegerValueForName(std::string_view name,
                                                                        bool useUnsignedInt);

private:
    Reader reader_;
};

} // namespace qv
