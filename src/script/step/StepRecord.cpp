#include "script/step/StepRecord.h"

#include "platform/foundation/values/Exception.h"

#include <fmt/core.h>

namespace qv {

namespace {

constexpr std::array<std::string_view, kStepKeyCount> kNames = {
    "fromURL", "toURL", "URL", "arg1", "arg2", "arg3", "arg4", "arg5", "operation"};

} // namespace

std::string_view stepKeyName(StepKey key) noexcept { return kNames[static_cast<std::size_t>(key)]; }

void refuseField(StepKey key, std::string_view wanted, const Value* found) {
    throw Exception(std::string(exception_name::kInvalidArgument),
                    fmt::format("\"{}\" of the step is {}; it must be {}", stepKeyName(key),
                                found == nullptr ? "missing" : kindText(found->kind()), wanted));
}

Error urlError(StepKey key, const Value* text) {
    if (text != nullptr && urlFromString(text)) {
        return {};
    }
    const std::string found =
        text == nullptr ? "missing" : fmt::format("“{}”, which is not a URL", text->asString());
    const std::string why =
        fmt::format("\"{}\" of the step is {}; it must be a file URL such as file:///opt/app",
                    stepKeyName(key), found);
    return {error_domain::kCocoa, cocoa_error::kFileNoSuchFile,
            Value::dictionary({{error_key::kDebugDescription, Value::string(why)}})};
}

std::optional<URL> urlFromString(const Value* text) {
    return text == nullptr ? std::nullopt : URL::URLWithString(text->asString());
}

std::optional<Value> stringFromURL(const std::optional<URL>& url) {
    return url ? std::optional(Value::string(url->absoluteString())) : std::nullopt;
}

std::optional<Value> StepFields::object(StepKey key) const {
    const Value* value = (*this)[key];
    return value == nullptr ? std::nullopt : std::optional<Value>(*value);
}

const Value* StepFields::number(StepKey key) const {
    const Value* value = (*this)[key];
    if (value != nullptr && !value->isNumber() && !value->is(Value::Kind::string)) {
        refuseField(key, "a number", value);
    }
    return value;
}

const StepReader::Layout& StepReader::layoutOf(const KeyList& keys) {
    const auto identity = reinterpret_cast<std::uintptr_t>(keys.identity());
    Layout& layout = layouts_[(identity >> 4U) % layouts_.size()];
    if (!layout.filled || !layout.keys.sameAs(keys)) {
        layout.keys = keys;
        layout.filled = true;
        for (std::size_t i = 0; i < kStepKeyCount; ++i) {
            const std::optional<std::size_t> place = keys.indexOf(kNames[i]);
            layout.index[i] = place ? static_cast<std::int32_t>(*place) : -1;
        }
    }
    return layout;
}

StepFields StepReader::read(const Value& step) {
    if (!step.is(Value::Kind::dictionary)) {
        throw Exception(std::string(exception_name::kInvalidArgument),
                        fmt::format("a step must be a dictionary, not {}", kindText(step.kind())));
    }
    const DictionaryView pairs = step.asDictionary();
    const Layout& layout = layoutOf(pairs.keys());
    StepFields fields;
    for (std::size_t i = 0; i < kStepKeyCount; ++i) {
        if (layout.index[i] >= 0) {
            fields.fields_[i] = &pairs.value(static_cast<std::size_t>(layout.index[i]));
        }
    }
    for (const StepKey key : {StepKey::fromURL, StepKey::toURL, StepKey::URL}) {
        const Value* text = fields[key];
        if (text != nullptr && !text->is(Value::Kind::string)) {
            refuseField(key, "a string, a file URL", text);
        }
    }
    return fields;
}

} // namespace qv
