#include "rules/functions/QVRuleCheckerSysCtlFunction.h"

#include "platform/foundation/values/Description.h"
#include "platform/foundation/values/UTF8.h"
#include "platform/system/ClassRegistry.h"
#include "rules/functions/ComputerModel.h"

#include <cstdint>
#include <cstring>
#include <string>
#include <utility>

namespace qv {

namespace {

QVRuleCheckerSysCtlFunction::Reader readerBelow(const std::string& root) {
    return [parameters = KernelParameters(root, [] { return ComputerModel::read().model; })](
               std::string_view name) { return parameters.read(name); };
}

std::optional<Value> stringValue(const std::optional<KernelParameter>& parameter) {
    if (!parameter) {
        return std::nullopt;
    }
    const std::string_view text =
        std::string_view(parameter->text).substr(0, parameter->text.find('\0'));
    return isUTF8(text) ? std::optional(Value::string(text)) : std::nullopt;
}

template <typename Integer> Integer integerFrom(std::string_view bytes) {
    Integer integer = 0;
    std::memcpy(&integer, bytes.data(), sizeof integer);
    return integer;
}

template <typename Signed, typename Unsigned>
Value integerOf(std::string_view bytes, bool useUnsignedInt) {
    return useUnsignedInt ? Value::unsignedInteger(integerFrom<Unsigned>(bytes))
                          : Value::integer(integerFrom<Signed>(bytes));
}

std::optional<Value> integerValue(const std::optional<KernelParameter>& parameter,
                                  bool useUnsignedInt) {
    const std::string_view bytes = parameter ? parameter->number : std::string_view();
    switch (bytes.size()) {
    case 1:
        return integerOf<std::int8_t, std::uint8_t>(bytes, useUnsignedInt);
    case 2:
        return integerOf<std::int16_t, std::uint16_t>(bytes, useUnsignedInt);
    case 4:
        return integerOf<std::int32_t, std::uint32_t>(bytes, useUnsignedInt);
    case 8:
        return integerOf<std::int64_t, std::uint64_t>(bytes, useUnsignedInt);
    default:
        return std::nullopt;
    }
}

} // namespace

QVRuleCheckerSysCtlFunction::QVRuleCheckerSysCtlFunction(const RuleServices::Shared& services)
    : QVRuleCheckerSysCtlFunction(readerBelow(services != nullptr ? services->root : "")) {}

QVRuleCheckerSysCtlFunction::QVRuleCheckerSysCtlFunction(Reader reader)
    : QVRuleCheckerFunction("sysctl", "sysctl", nullptr), reader_(std::move(reader)) {}

std::optional<Value> QVRuleCheckerSysCtlFunction::resultFor(const std::optional<Value>& parameter,
                                                            bool returnString) {
    if (!parameter || !parameter->is(Value::Kind::string)) {
        return std::nullopt;
    }
    const std::string_view whole = parameter->asString();
    const std::size_t dot = whole.find('.');
    if (dot == std::string_view::npos) {
        return std::nullopt;
    }
    const std::string_view type = whole.substr(0, dot);
    const std::string_view name = whole.substr(dot + 1);
    if (type == "string") {
        return stringValue(reader_(name));
    }
    if (type != "integer" && type != "unsignedInteger") {
        return stringValue(reader_(whole));
    }
    auto number = integerValue(reader_(name), type == "unsignedInteger");
    return number && returnString ? Value::string(description(*number)) : number;
}

std::optional<Value> QVRuleCheckerSysCtlFunction::sysCtlStringValueForName(std::string_view name) {
    return stringValue(readerBelow({})(name));
}

std::optional<Value> QVRuleCheckerSysCtlFunction::sysCtlIntegerValueForName(std::string_view name,
                                                                            bool useUnsignedInt) {
    return integerValue(readerBelow({})(name), useUnsignedInt);
}

QV_REGISTER_CLASS(QVRuleCheckerSysCtlFunction, QVRuleCheckerFunction,
                  QV_METHOD(resultFor, "resultFor:returnString:"),
                  QV_CLASS_METHOD(sysCtlStringValueForName, "sysCtlStringValueForName:"),
                  QV_CLASS_METHOD(sysCtlIntegerValueForName,
                                  "sysCtlIntegerValueForName:useUnsignedInt:"));

} // namespace qv
