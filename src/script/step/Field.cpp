#include "script/step/Field.h"

#include "platform/foundation/values/Exception.h"

#include <fmt/core.h>

#include <array>

namespace qv {

namespace {

constexpr std::array<std::string_view, kStepKeyCount> kKeyNames = {
    "fromURL", "toURL", "URL", "arg1", "arg2", "arg3", "arg4", "arg5", "operation"};

constexpr std::array kKinds = {
    FieldKindInfo{FieldKind::item, "file URL", "a string, a file URL", FieldForm::url},
    FieldKindInfo{FieldKind::toolPath, "absolute path", "a string, the path of a tool",
                  FieldForm::text},
    FieldKindInfo{FieldKind::arguments, "array of strings",
                  "an array of strings, a tool's arguments", FieldForm::texts, true},
    FieldKindInfo{FieldKind::exitCodes, "carried, not consulted", "any value", FieldForm::any},
    FieldKindInfo{FieldKind::mode, "permission bits", "a number", FieldForm::number},
    FieldKindInfo{FieldKind::userID, "user ID", "a number", FieldForm::number},
    FieldKindInfo{FieldKind::groupID, "group ID", "a number", FieldForm::number},
    FieldKindInfo{FieldKind::flag, "flag", "a number", FieldForm::number},
    FieldKindInfo{FieldKind::adminFlag, "flag as a number", "a number", FieldForm::number},
    FieldKindInfo{FieldKind::processID, "process ID", "a number", FieldForm::number},
    FieldKindInfo{FieldKind::errorBehaviour, "number", "a number", FieldForm::number},
    FieldKindInfo{FieldKind::progressField, "number", "a number", FieldForm::number},
    FieldKindInfo{FieldKind::rule, "string", "a string, a rule", FieldForm::text},
    FieldKindInfo{FieldKind::application, "identifier", "a string, an application",
                  FieldForm::text},
    FieldKindInfo{FieldKind::preferenceKey, "string", "a string, a key", FieldForm::text},
    FieldKindInfo{FieldKind::user, "name of a user", "a string, a user", FieldForm::text},
    FieldKindInfo{FieldKind::host, "name of a host", "a string, a host", FieldForm::text},
    FieldKindInfo{FieldKind::appleScript, "string", "a string, a program's source", FieldForm::text,
                  true},
    FieldKindInfo{FieldKind::identifier, "any value", "what the owner is saved under",
                  FieldForm::any},
    FieldKindInfo{FieldKind::value, "any value", "any value", FieldForm::any, true},
    FieldKindInfo{FieldKind::storage, "dictionary", "a dictionary", FieldForm::dictionary},
};

constexpr bool kindsAreIndexes() {
    for (std::size_t i = 0; i < kKinds.size(); ++i) {
        if (static_cast<std::size_t>(kKinds[i].kind) != i) {
            return false;
        }
    }
    return true;
}
static_assert(kindsAreIndexes(), "a kind stands at the place that its number says");
static_assert(kKinds.size() == kFieldKindCount);

bool isOfForm(const Value& value, FieldForm form) {
    const bool isText = value.is(Value::Kind::string);
    switch (form) {
    case FieldForm::url:
    case FieldForm::text:
        return isText;
    case FieldForm::number:
        return isText || value.isNumber();
    case FieldForm::texts:
        return value.isNull() || value.is(Value::Kind::array);
    case FieldForm::dictionary: // the operation that uses it looks
    case FieldForm::any:
        break;
    }
    return true;
}

} // namespace

std::string_view stepKeyName(StepKey key) noexcept {
    return kKeyNames[static_cast<std::size_t>(key)];
}

std::string Field::writtenKey() const {
    std::string written;
    for (std::size_t i = 0; i < name.size(); ++i) {
        const bool beginsWord = i > 0 && name[i - 1] == ' '; // words are of small letters
        if (name[i] != ' ') {
            written += beginsWord ? static_cast<char>(name[i] - 'a' + 'A') : name[i];
        }
    }
    return written;
}

const FieldKindInfo& infoOf(FieldKind kind) noexcept {
    return kKinds[static_cast<std::size_t>(kind)];
}

void refuseField(StepKey key, std::string_view wanted, const Value* found) {
    throw Exception(std::string(exception_name::kInvalidArgument),
                    fmt::format("\"{}\" of the step is {}; it must be {}", stepKeyName(key),
                                found == nullptr ? "missing" : kindText(found->kind()), wanted));
}

void checkField(const Field& field, const std::optional<Value>& value) {
    if (value ? !isOfForm(*value, infoOf(field.kind).form) : field.missing == Missing::raises) {
        refuseField(field.key, infoOf(field.kind).wanted, value ? &*value : nullptr);
    }
}

std::optional<URL> urlFromString(const Value* text) {
    return text == nullptr ? std::nullopt : URL::URLWithString(text->asString());
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

} // namespace qv
