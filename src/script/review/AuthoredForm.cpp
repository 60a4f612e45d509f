#include "script/review/AuthoredForm.h"

#include "platform/foundation/text/SimilarNames.h"
#include "platform/foundation/values/ASCII.h"
#include "platform/foundation/values/Conversions.h"
#include "script/review/WrittenField.h"
#include "script/review/WrittenOperation.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <span>

namespace qv {

namespace {

using Kind = Value::Kind;

constexpr std::string_view kOperationKey = "operation";
constexpr std::size_t kMostFaultsOfStep = 16;

bool isWholeNumber(std::string_view text) {
    const std::string_view digits = text.substr(text.starts_with('-') ? 1 : 0);
    return !digits.empty() && std::ranges::all_of(digits, isDigit);
}

bool isExactStep(const Value& step) {
    if (const Value* operation = step.find(kOperationKey)) {
        return operation->isNumber() ||
               (operation->is(Kind::string) && isWholeNumber(operation->asString()));
    }
    const KeyList& keys = step.asDictionary().keys();
    for (std::size_t i = 0; i < keys.size(); ++i) {
        if (!isExactKey(keys[i].asString())) {
            return false;
        }
    }
    return true;
}

// The text "write “mode”", if the word is like a known name; else a list of the names.
std::string mendOfWord(std::string_view word, const std::vector<std::string>& known,
                       std::string_view what) {
    const std::vector<std::string> similar = similarNames(word, known);
    return similar.empty() ? fmt::format("{}: {}", what, fmt::join(known, ", "))
                           : fmt::format("write \"{}\"", fmt::join(similar, "\" or \""));
}

/// Builds the steps of one document.
class AuthoredBuilder {
public:
    Value build(const Value& written, std::size_t index) {
        index_ = index;
        faultsBefore_ = faults.size();
        if (!written.is(Kind::dictionary)) {
            fail({}, {"not-a-step", fmt::format("a step is {}", kindText(written.kind())),
                      "write a step as an object {\"operation\": ...}"});
            return Value::dictionary({});
        }
        if (isExactStep(written)) {
            return written;
        }
        hasAuthored = true;
        const WrittenOperation* operation = operationOf(written);
        return operation == nullptr ? Value::dictionary({}) : buildFields(*operation, written);
    }

    std::vector<Finding> faults;
    bool hasAuthored = false;

private:
    [[nodiscard]] bool isFull() const { return faults.size() - faultsBefore_ >= kMostFaultsOfStep; }

    void fail(std::string_view key, WrittenFault fault) {
        if (!isFull()) {
            faults.push_back({.rule = fault.rule,
                              .severity = Finding::Severity::error,
                              .step = index_,
                              .key = std::string(key),
                              .element = fault.element,
                              .offset = std::nullopt,
                              .reason = std::move(fault.reason),
                              .mend = std::move(fault.mend)});
        }
    }

    const WrittenOperation* operationOf(const Value& step) {
        const Value* name = step.find(kOperationKey);
        if (name == nullptr) {
            refuseMissingOperation(step.asDictionary().keys());
            return nullptr;
        }
        if (!name->is(Kind::string)) {
            fail(kOperationKey,
                 {"wrong-class", fmt::format("the operation is {}", kindText(name->kind())),
                  "write the name of an operation in quotes"});
            return nullptr;
        }
        const WrittenOperation* operation = writtenOperation(name->asString());
        if (operation == nullptr) {
            fail(kOperationKey,
                 {"unknown-operation", fmt::format("there is no operation “{}”", name->asString()),
                  mendOfOperation(name->asString())});
        }
        return operation;
    }

    void refuseMissingOperation(const KeyList& keys) {
        constexpr std::size_t kMostKeys = 16;
        for (std::size_t i = 0; i < std::min(keys.size(), kMostKeys); ++i) {
            const std::string_view key = keys[i].asString();
            if (!similarNames(key, {std::string(kOperationKey)}).empty()) {
                fail(key, {"unknown-key", fmt::format("a step has no \"{}\"", key),
                           "write \"operation\""});
                return;
            }
        }
        fail({}, {"missing-operation", "the step does not say its operation",
                  "add \"operation\" with the name of one"});
    }

    static std::string mendOfOperation(std::string_view word) {
        std::vector<std::string> known;
        for (const Operation& row : allOperations()) {
            if (operationName(row) == word || row.selector == word) {
                return fmt::format("write \"{}\"", row.name);
            }
            known.emplace_back(row.name);
        }
        return mendOfWord(word, known, "the operations are");
    }

    Value buildFields(const WrittenOperation& operation, const Value& written) {
        const std::span<const Field> fields = operation.row->fields;
        std::vector<Value> values = {
            Value::integer(static_cast<std::int64_t>(operation.row->code))};
        std::uint32_t present = 0;
        std::size_t known = 1; // "operation"
        for (std::size_t i = 0; i < fields.size(); ++i) {
            const WrittenKind& kind = writtenKind(fields[i].kind);
            const Value* value = written.find(operation.keys[i]);
            if (value == nullptr) {
                if (!kind.isOptional && !isMisspelt(operation.keys[i], operation, written)) {
                    fail({},
                         {"missing-field",
                          fmt::format("{} needs \"{}\"", operation.row->name, operation.keys[i]),
                          fmt::format("add \"{}\": {}", operation.keys[i], kind.text)});
                }
                continue;
            }
            ++known;
            if (auto built = kind.build(*value, context_)) {
                values.push_back(std::move(*built));
                present |= 1U << i;
            } else {
                fail(operation.keys[i], std::move(built.error()));
            }
        }
        if (known < written.asDictionary().size()) {
            refuseUnknownKeys(operation, written);
        }
        return Value::dictionary(exactKeys_.of(operation, present), values);
    }

    // Whether another key of the step is likely meant to be this one.
    static bool isMisspelt(const std::string& key, const WrittenOperation& operation,
                           const Value& written) {
        constexpr std::size_t kMostKeys = 16;
        const KeyList& keys = written.asDictionary().keys();
        for (std::size_t i = 0; i < std::min(keys.size(), kMostKeys); ++i) {
            const std::string_view other = keys[i].asString();
            const bool isKnown = other == kOperationKey ||
                                 std::ranges::find(operation.keys, other) != operation.keys.end();
            if (!isKnown &&
                (!similarNames(other, {key}).empty() || exactKeyOf(operation, key) == other)) {
                return true;
            }
        }
        return false;
    }

    static std::string_view exactKeyOf(const WrittenOperation& operation, std::string_view key) {
        const auto place = std::ranges::find(operation.keys, key);
        return stepKeyName(
            operation.row->fields[static_cast<std::size_t>(place - operation.keys.begin())].key);
    }

    void refuseUnknownKeys(const WrittenOperation& operation, const Value& written) {
        const KeyList& keys = written.asDictionary().keys();
        for (std::size_t i = 0; i < keys.size() && !isFull(); ++i) {
            const std::string_view key = keys[i].asString();
            if (key == kOperationKey ||
                std::ranges::find(operation.keys, key) != operation.keys.end()) {
                continue;
            }
            const auto exact =
                std::ranges::find(operation.row->fields, key,
                                  [](const Field& field) { return stepKeyName(field.key); });
            const auto field = static_cast<std::size_t>(exact - operation.row->fields.begin());
            fail(key,
                 {"unknown-key", fmt::format("{} has no \"{}\"", operation.row->name, key),
                  field < operation.keys.size() ? fmt::format("write \"{}\"", operation.keys[field])
                                                : mendOfWord(key, operation.keys, "its keys are")});
        }
    }

    std::size_t index_ = 0;
    std::size_t faultsBefore_ = 0;
    WritingContext context_;
    StepKeyLists exactKeys_{StepKeyLists::Form::exact};
};

/// Shows the steps of one script.
class AuthoredShower {
public:
    explicit AuthoredShower(ShownOwners owners) {
        context_.ownersByName = owners == ShownOwners::byName;
    }

    // The step as it is where people's form cannot say it.
    Value show(const Value& step) {
        const Value* code = step.find(kOperationKey);
        if (code == nullptr || !code->is(Kind::integer)) {
            return step;
        }
        const Operation* row = operationForCode(static_cast<std::uint64_t>(code->asInteger()));
        if (row == nullptr) {
            return step;
        }
        const WrittenOperation& operation = *writtenOperation(row->name);
        std::vector<Value> values = {Value::string(row->name)};
        std::uint32_t present = 0;
        for (std::size_t i = 0; i < row->fields.size(); ++i) {
            const WrittenKind& kind = writtenKind(row->fields[i].kind);
            const Value* exact = step.find(stepKeyName(row->fields[i].key));
            if (exact == nullptr) {
                if (!kind.isOptional) {
                    return step;
                }
                continue;
            }
            std::optional<Value> written = kind.show(*exact, context_);
            const auto again = written ? kind.build(*written, context_) : Value();
            if (!written || !again || !isSameExactly(*again, *exact)) {
                return step;
            }
            values.push_back(std::move(*written));
            present |= 1U << i;
        }
        if (values.size() != step.asDictionary().size()) {
            return step; // a key that the operation does not have
        }
        return Value::dictionary(writtenKeys_.of(operation, present), values);
    }

private:
    WritingContext context_;
    StepKeyLists writtenKeys_{StepKeyLists::Form::written};
};

Finding faultOfScript(std::string_view rule, std::string key, std::string reason,
                      std::string mend) {
    return {.rule = rule,
            .severity = Finding::Severity::error,
            .step = std::nullopt,
            .key = std::move(key),
            .element = std::nullopt,
            .offset = std::nullopt,
            .reason = std::move(reason),
            .mend = std::move(mend)};
}

// A number or flag that a text says, where it has the value that a replay reads from the text.
Value withNumber(const Field& field, const Value& value) {
    if (!value.is(Kind::string) || infoOf(field.kind).form != FieldForm::number) {
        return value;
    }
    if (field.kind == FieldKind::flag) {
        return Value::boolean(boolValue(value.asString()));
    }
    return isWholeNumber(value.asString()) ? Value::integer(integerValue(&value)) : value;
}

} // namespace

AuthoredScript stepsFromAuthored(const Value& document) {
    AuthoredScript script{.steps = Value::array({}), .faults = {}, .isExact = false};
    const Value* steps = &document;
    if (document.is(Kind::dictionary)) {
        const KeyList& keys = document.asDictionary().keys();
        for (std::size_t i = 0; i < keys.size(); ++i) {
            const std::string_view key = keys[i].asString();
            if (key != "steps" && key != "$schema") {
                script.faults.push_back(faultOfScript(
                    "unknown-key", std::string(key), fmt::format("a script has no \"{}\"", key),
                    mendOfWord(key, {"steps", "$schema"}, "its keys are")));
                break; // one is enough to see what is wrong
            }
        }
        steps = document.find("steps");
    }
    if (steps == nullptr || !steps->is(Kind::array)) {
        const Value& wrong = steps == nullptr ? document : *steps;
        script.faults.push_back(faultOfScript(
            "not-a-script", steps == nullptr || steps == &document ? "" : "steps",
            steps == nullptr ? std::string("the script has no \"steps\"")
                             : fmt::format("the steps are {}", kindText(wrong.kind())),
            "write the steps as an array, [...], under \"steps\""));
        return script;
    }
    AuthoredBuilder builder;
    std::vector<Value> built;
    built.reserve(steps->asArray().size());
    for (const Value& step : steps->asArray()) {
        built.push_back(builder.build(step, built.size()));
    }
    script.faults.insert(script.faults.end(), std::move_iterator(builder.faults.begin()),
                         std::move_iterator(builder.faults.end()));
    script.steps = Value::array(std::move(built));
    script.isExact = steps == &document && !builder.hasAuthored;
    return script;
}

Value authoredFromSteps(const Value& steps, ShownOwners owners) {
    AuthoredShower shower(owners);
    std::vector<Value> shown;
    shown.reserve(steps.asArray().size());
    for (const Value& step : steps.asArray()) {
        shown.push_back(shower.show(step));
    }
    return Value::array(std::move(shown));
}

Value stepsWithNumbers(const Value& steps) {
    std::vector<Value> changed;
    changed.reserve(steps.asArray().size());
    for (const Value& step : steps.asArray()) {
        const Value* code = step.find(kOperationKey);
        const bool isCode =
            code != nullptr && (code->is(Kind::integer) ||
                                (code->is(Kind::string) && isWholeNumber(code->asString())));
        const Operation* row =
            isCode ? operationForCode(static_cast<std::uint64_t>(integerValue(code))) : nullptr;
        if (row == nullptr) {
            changed.push_back(step);
            continue;
        }
        const DictionaryView pairs = step.asDictionary();
        std::vector<Value> values(pairs.values().begin(), pairs.values().end());
        values[*pairs.keys().indexOf(kOperationKey)] = Value::integer(integerValue(code));
        for (const Field& field : row->fields) {
            if (const auto place = pairs.keys().indexOf(stepKeyName(field.key))) {
                values[*place] = withNumber(field, values[*place]);
            }
        }
        changed.push_back(Value::dictionary(pairs.keys(), values));
    }
    return Value::array(std::move(changed));
}

} // namespace qv
