#pragma once

#include "rules/functions/QVRuleCheckerFunction.h"

#include <memory>

namespace qv {

class QVIOService;

/// "iokit": whether a service of the device registry matches a matching dictionary and meets
/// properties, or a property of the first one that does. Takes a dictionary: under "do" the
/// question, "exists" or "propertyValue" (of "propertyName"); the value to match under "matchStr"
/// or "matchInt" and the key of a matching dictionary; the value to meet under "meetStr" or
/// "meetInt" and the name of a property.
class QVRuleCheckerIOKitFunction final : public QVRuleCheckerFunction {
public:
    QVRuleCheckerIOKitFunction();

    [[nodiscard]] std::optional<Value> resultFor(const std::optional<Value>& parameter,
                                                 bool returnString) override;

    /// The first service in the registry's order that matches, and that has every property of
    /// `meeting`, a dictionary, with an equal value. Null for none.
    [[nodiscard]] static std::shared_ptr<QVIOService> firstServiceMatching(const Value& matching,
                                                                           const Value& andMeeting);
};

} // namespace qv
