#include "script/step/StepRecord.h"

#include "platform/foundation/values/Exception.h"

#include <fmt/core.h>

#include <cassert>

namespace qv {

std::optional<Value> StepArgument::recorded() const {
    if (const auto* url = std::get_if<const std::optional<URL>*>(&argument_)) {
        return **url ? std::optional(Value::string((**url)->absoluteString())) : std::nullopt;
    }
    if (const auto* value = std::get_if<const std::optional<Value>*>(&argument_)) {
        return **value;
    }
    const bool* flag = std::get_if<bool>(&argument_);
    return flag != nullptr ? Value::boolean(*flag)
                           : Value::integer(std::get<std::int64_t>(argument_));
}

Error missingURL(const Operation& operation, StepArguments arguments) {
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        if (arguments[i].isMissingURL()) {
            return urlError(operation.fields[i].key, nullptr);
        }
    }
    return {};
}

Value stepRecord(const Operation& operation, StepArguments arguments) {
    assert(arguments.size() == operation.fields.size());
    std::vector<std::pair<Value, Value>> pairs;
    pairs.emplace_back(Value::string(stepKeyName(StepKey::operation)),
                       Value::integer(static_cast<std::int64_t>(operation.code)));
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const Field& field = operation.fields[i];
        if (const std::optional<Value> value = arguments[i].recorded()) {
            pairs.emplace_back(Value::string(stepKeyName(field.key)), *value);
            continue;
        }
        switch (field.inRecord) {
        case InRecord::required:
            throw Exception(std::string(exception_name::kInvalidArgument),
                            fmt::format("{} cannot be recorded: \"{}\" of its step is missing",
                                        operationName(operation), stepKeyName(field.key)));
        case InRecord::nullObject:
            pairs.emplace_back(Value::string(stepKeyName(field.key)), Value());
            break;
        case InRecord::leftOut:
            break;
        }
    }
    return Value::dictionary(std::move(pairs));
}

} // namespace qv
