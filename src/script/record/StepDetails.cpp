#include "script/record/StepDetails.h"

#include "platform/foundation/digest/SHA256.h"
#include "platform/foundation/values/Description.h"
#include "platform/foundation/values/URL.h"
#include "script/record/RunFields.h"
#include "script/step/StepText.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <array>

namespace qv {

namespace {

constexpr std::size_t kLongestDescription = std::size_t{64} << 10U;

bool mayTellWords(const Operation* operation, SecretValues secrets) {
    return secrets == SecretValues::written || operation == nullptr ||
           std::ranges::none_of(operation->fields,
                                [](const Field& field) { return infoOf(field.kind).maybeSecret; });
}

// A value may be of any class and, where objects are shared, far longer than what it was sent as.
std::string boundedText(const Value& value) {
    return value.is(Value::Kind::string) ? std::string(value.asString())
                                         : description(value, kLongestDescription);
}

std::string itemText(const Field& field, const Value& value) {
    const bool isURL = field.kind == FieldKind::item && value.is(Value::Kind::string);
    const std::optional<URL> url = isURL ? urlFromString(&value) : std::nullopt;
    const std::string text = boundedText(value);
    return url && url->isFileURL() ? url->path().value_or(text) : text;
}

std::string secretText(const Field& field, const Value& value, SecretValues secrets) {
    const std::string text = boundedText(value);
    return secrets == SecretValues::written ? fmt::format("{}: {}", field.name, text)
                                            : fmt::format("{}: {} bytes, sha256 {:02x}", field.name,
                                                          text.size(), fmt::join(sha256(text), ""));
}

} // namespace

std::string_view outcomeName(StepOutcome outcome) noexcept {
    constexpr std::array<std::string_view, 5> kNames = {"done", "changed", "unchanged", "skipped",
                                                        "failed"};
    return kNames[static_cast<std::size_t>(outcome)];
}

std::string stepMessage(const Value& step, std::size_t index, std::size_t count,
                        StepOutcome outcome) {
    return fmt::format("step {} of {}: {}: {}", index + 1, count, stepText(step, Secrets::hidden),
                       outcomeName(outcome));
}

void addStep(log::Record& record, const Value& step, const Operation* operation,
             SecretValues secrets) {
    record.add(run_field::kText, stepText(step, Secrets::hidden));
    if (operation == nullptr) {
        return;
    }
    record.add(run_field::kOperation, operation->name);
    for (const Field& field : operation->fields) {
        const Value* value = step.find(stepKeyName(field.key));
        if (value == nullptr) {
            continue;
        }
        if (infoOf(field.kind).maybeSecret) {
            record.add(run_field::kValue, secretText(field, *value, secrets));
        } else if (field.kind == FieldKind::item || field.kind == FieldKind::toolPath ||
                   field.kind == FieldKind::application) {
            record.add(run_field::kItem, itemText(field, *value));
        }
    }
}

std::string faultText(const Error& error, const Operation* operation, SecretValues secrets) {
    if (!error) {
        return {};
    }
    const std::string code = fmt::format("{} {}", error.domain(), error.code());
    return mayTellWords(operation, secrets)
               ? fmt::format(": {} ({})", error.localizedDescription(), code)
               : ": " + code;
}

void addError(log::Record& record, const Error& error, const Operation* operation,
              SecretValues secrets) {
    if (!error) {
        return;
    }
    record.add(run_field::kErrorDomain, error.domain());
    record.add(run_field::kErrorCode, std::to_string(error.code()));
    if (mayTellWords(operation, secrets)) {
        record.add(run_field::kError, error.localizedDescription());
    }
}

} // namespace qv
