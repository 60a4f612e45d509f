#include "platform/foundation/values/Conversions.h"
#include "platform/foundation/values/Exception.h"
#include "script/review/lint/Checks.h"

#include <fmt/format.h>

#include <algorithm>

namespace qv::review {

namespace {

constexpr std::string_view kOperationKey = "operation";

const std::vector<std::string>& namesOfOperations() {
    static const std::vector<std::string> names = [] {
        std::vector<std::string> list;
        for (const Operation& operation : allOperations()) {
            list.emplace_back(operation.name);
            list.emplace_back(operationName(operation));
        }
        return list;
    }();
    return names;
}

const std::vector<std::string>& namesOfKeys() {
    static const std::vector<std::string> names = [] {
        std::vector<std::string> list;
        for (std::size_t i = 0; i < kStepKeyCount; ++i) {
            list.emplace_back(stepKeyName(static_cast<StepKey>(i)));
        }
        return list;
    }();
    return names;
}

// The operation that a person means by a text: by its name or its method's.
const Operation* operationMeant(std::string_view text) {
    const auto found = std::ranges::find_if(allOperations(), [&](const Operation& operation) {
        return operation.name == text || operationName(operation) == text;
    });
    return found == allOperations().end() ? nullptr : &*found;
}

Explanation explanationOfUnknown(const Value& code) {
    const std::string last = std::to_string(kOperationCount - 1);
    if (!code.is(Value::Kind::string)) {
        if (!code.isNumber()) {
            return {
                fmt::format("the operation is {}, which stops the script", kindText(code.kind())),
                fmt::format("write a number from 0 to {}", last)};
        }
        if (const auto number = wholeNumber(code)) {
            return {fmt::format("no operation has the code {}, so the step is skipped", *number),
                    fmt::format("write a code from 0 to {}", last)};
        }
        return {fmt::format("the operation is not a whole number and is read as {}",
                            integerValue(&code)),
                fmt::format("write a number from 0 to {}", last)};
    }
    const std::string_view text = code.asString();
    if (wholeNumber(code)) {
        return {fmt::format("no operation has the code {}, so the step is skipped", text),
                fmt::format("write a code from 0 to {}", last)};
    }
    const std::int64_t taken = integerValue(&code);
    const Operation* other = operationForCode(static_cast<std::uint64_t>(taken));
    std::string reason =
        fmt::format("the operation {} is not a number and is read as {}, which {}", inQuotes(text),
                    taken, other == nullptr ? "is skipped" : fmt::format("is \"{}\"", other->name));
    if (const Operation* meant = operationMeant(text)) {
        return {std::move(reason), fmt::format("write {}", static_cast<int>(meant->code))};
    }
    return {reason + suggestion(text, namesOfOperations()),
            fmt::format("write the code of the operation, from 0 to {}", last)};
}

// A text of another case is nearer than similarNames says.
std::string keyMeant(std::string_view key) {
    const auto sameLetters = [&](const std::string& known) {
        return std::ranges::equal(known, key, [](unsigned char left, unsigned char right) {
            return std::tolower(left) == std::tolower(right);
        });
    };
    const auto found = std::ranges::find_if(namesOfKeys(), sameLetters);
    return found == namesOfKeys().end() ? suggestion(key, namesOfKeys())
                                        : fmt::format("; did you mean \"{}\"?", *found);
}

void reviewKeys(const ReviewedStep& step, Findings& findings) {
    const DictionaryView pairs = step.record->asDictionary();
    for (std::size_t i = 0; i < pairs.size(); ++i) {
        const std::string_view key = pairs.key(i);
        if (key == kOperationKey) {
            continue;
        }
        if (std::ranges::find(namesOfKeys(), key) == namesOfKeys().end()) {
            const std::string meant = keyMeant(key);
            findings.add(meant.empty() ? Check::unknownKey : Check::misspeltKey, {step.index, key},
                         {fmt::format("no operation has the key {}, so its value is ignored{}",
                                      inQuotes(key), meant),
                          "correct the key, or leave it out"});
            continue;
        }
        const bool isUsed = step.operation == nullptr ||
                            std::ranges::any_of(step.operation->fields, [&](const Field& field) {
                                return stepKeyName(field.key) == key;
                            });
        if (!isUsed) {
            findings.add(
                Check::unusedKey, {step.index, key},
                {fmt::format("the operation \"{}\" ignores \"{}\"", step.operation->name, key),
                 "leave it out, or take the operation that was meant"});
        }
    }
}

std::string_view loss(const Field& field) {
    switch (field.kind) {
    case FieldKind::rule:
        return "so the rule is false";
    case FieldKind::appleScript:
        return "so the step does nothing";
    case FieldKind::storage:
        return "so no owner can be saved any more";
    case FieldKind::userID:
    case FieldKind::groupID:
        return "and a missing ID is 0, which is root's";
    case FieldKind::mode:
        return "and a missing mode is 0, which takes all permissions away";
    case FieldKind::processID:
        return "and no process has the ID 0, so the step does not wait";
    default:
        return "so the step fails";
    }
}

// An operation's row says whether it can do without a value; some of these values are still the
// whole purpose of their step.
void reviewMissing(const ReviewedStep& step, const Field& field, Findings& findings) {
    using enum FieldKind;
    const bool isPurpose = field.kind == rule || field.kind == appleScript || field.kind == storage;
    const bool isTelling = field.kind == userID || field.kind == groupID || field.kind == mode ||
                           field.kind == processID;
    const bool isNeeded = field.missing != Missing::none && field.missing != Missing::zero;
    if (isNeeded || isPurpose || isTelling) {
        findings.add(isTelling ? Check::missingNumber : Check::missingValue, {step.index},
                     {fmt::format("the {} (\"{}\") is missing, {}", field.name,
                                  stepKeyName(field.key), loss(field)),
                      fmt::format("give the step its {}", field.name)});
    }
}

bool isOfWrongType(const Field& field, const Value& value) {
    if (infoOf(field.kind).form == FieldForm::dictionary) {
        return !value.is(Value::Kind::dictionary);
    }
    if (field.kind == FieldKind::value && field.inRecord == InRecord::leftOut && value.isNull()) {
        return true;
    }
    try {
        checkField(field, value);
        return false;
    } catch (const Exception&) {
        return true;
    }
}

void reviewField(const ReviewedStep& step, const Field& field, Findings& findings) {
    const Value* value = step.value(field);
    if (value == nullptr) {
        reviewMissing(step, field, findings);
        return;
    }
    if (isOfWrongType(field, *value)) {
        findings.add(Check::wrongType, step.at(field),
                     {fmt::format("the value for \"{}\" is {}, which fails or stops the script",
                                  field.name, kindText(value->kind())),
                      fmt::format("write {}", infoOf(field.kind).wanted)});
        return;
    }
    switch (infoOf(field.kind).form) {
    case FieldForm::number:
        reviewNumber(step, field, *value, findings);
        break;
    case FieldForm::url:
        reviewPlace(step, field, *value, findings);
        break;
    default:
        break;
    }
}

} // namespace

void reviewShape(const ReviewedStep& step, Findings& findings) {
    const Value* code = step.record->find(kOperationKey);
    if (code == nullptr) {
        findings.add(Check::missingOperation, {step.index},
                     {"the step has no operation, and is carried out as a wait for a process",
                      "write \"operation\" and the code of the operation"});
    } else if (step.operation == nullptr) {
        findings.add(Check::unknownOperation, {step.index, kOperationKey},
                     explanationOfUnknown(*code));
    }
    reviewKeys(step, findings);
    if (step.operation == nullptr) {
        return;
    }
    for (const Field& field : step.operation->fields) {
        reviewField(step, field, findings);
    }
}

} // namespace qv::review
