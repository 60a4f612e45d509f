#include "script/step/StepText.h"

#include <fmt/core.h>

namespace qv {

namespace {

std::string fieldText(const Field& field, const Value* value) {
    if (value == nullptr) {
        return fmt::format("(no {})", field.name);
    }
    if (value->is(Value::Kind::string)) {
        return std::string(value->asString());
    }
    if (!value->isNumber()) {
        return fmt::format("({})", kindText(value->kind()));
    }
    switch (field.kind) {
    case FieldKind::mode:
        return fmt::format("{:04o}", static_cast<std::uint32_t>(intValue(value)) & 0xFFFFU);
    case FieldKind::flag:
    case FieldKind::adminFlag:
        return boolValue(value) ? "yes" : "no";
    default:
        return std::to_string(integerValue(value));
    }
}

} // namespace

const Operation* operationOfStep(const Value& step) {
    const Value* code = step.find(stepKeyName(StepKey::operation));
    const bool isCode = code == nullptr || code->isNumber() || code->is(Value::Kind::string);
    return isCode && step.is(Value::Kind::dictionary)
               ? operationForCode(static_cast<std::uint64_t>(integerValue(code)))
               : nullptr;
}

std::string stepText(const Value& step, Secrets secrets) {
    const Operation* operation = operationOfStep(step);
    if (operation == nullptr) {
        return "unknown operation";
    }
    std::string text;
    std::string_view rest = operation->text;
    for (std::size_t open = rest.find('{'); open != rest.npos; open = rest.find('{')) {
        const std::size_t close = rest.find('}', open);
        const std::string_view name = rest.substr(open + 1, close - open - 1);
        const auto field = std::ranges::find(operation->fields, name, &Field::name);
        text += rest.substr(0, open);
        const Value* value = step.find(stepKeyName(field->key));
        const bool isHidden =
            value != nullptr && secrets == Secrets::hidden && infoOf(field->kind).maybeSecret;
        text += isHidden ? "(not shown)" : fieldText(*field, value);
        rest.remove_prefix(close + 1);
    }
    return text.append(rest);
}

} // namespace qv
