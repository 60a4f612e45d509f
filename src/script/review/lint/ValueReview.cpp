#include "platform/foundation/process/state/UserRecord.h"
#include "platform/foundation/values/Conversions.h"
#include "platform/preferences/PreferencesService.h"
#include "script/review/lint/Checks.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>

namespace qv::review {

namespace {

std::vector<std::string> designationsOf(FieldKind kind) {
    using namespace preferences;
    switch (kind) {
    case FieldKind::application:
        return {std::string(kAnyApplication), std::string(kCurrentApplication)};
    case FieldKind::user:
        return {std::string(kAnyUser), std::string(kCurrentUser)};
    case FieldKind::host:
        return {std::string(kAnyHost), std::string(kCurrentHost)};
    default:
        return {};
    }
}

void reviewDesignation(const ReviewedStep& step, const Field& field, std::string_view text,
                       Findings& findings) {
    const std::vector<std::string> known = designationsOf(field.kind);
    if (known.empty() || std::ranges::find(known, text) != known.end()) {
        return;
    }
    // The words that people write for one.
    static constexpr std::array<std::string_view, 6> kWords = {"any",     "current",     "*",
                                                               "AnyUser", "CurrentUser", "AnyHost"};
    const bool isWord =
        field.kind != FieldKind::application && std::ranges::find(kWords, text) != kWords.end();
    if (isWord || text.empty() || text.starts_with("kCF") || !suggestion(text, known).empty()) {
        findings.add(Check::unknownDesignation, step.at(field),
                     {fmt::format("{} is read as the name of the {}", inQuotes(text), field.name),
                      fmt::format("write a name, {} or {}", known.front(), known.back())});
    } else if (field.kind == FieldKind::user && step.options->asksMachine &&
               !userRecord(std::string(text))) {
        findings.add(Check::unknownUser, step.at(field),
                     {fmt::format("this machine has no user {}", inQuotes(text)),
                      "create the user before the script runs, or correct the name"});
    }
}

// Flags that a row carries and its operation does not consult.
struct IdleFlag {
    OperationCode code;
    std::string_view field;
    std::string_view why;
};
constexpr std::array kIdleFlags = std::to_array<IdleFlag>({
    {OperationCode::moveItemFromURL, "atomic",
     "a move within a volume is always atomic, and one "
     "to another volume never is"},
    {OperationCode::replaceItemAtURL, "adapt ownership",
     "a replacement always gets the owner of the folder"},
});

void reviewIdleFlags(const ReviewedStep& step, Findings& findings) {
    for (const IdleFlag& idle : kIdleFlags) {
        if (!step.is(idle.code)) {
            continue;
        }
        const Field* field = step.field(idle.field);
        const Value* value = field == nullptr ? nullptr : step.value(*field);
        // A replace acts in any case as its set flag says, so only a cleared flag has no effect.
        const bool isTaken = step.is(OperationCode::replaceItemAtURL);
        const bool isFlag =
            value != nullptr && (value->isNumber() || value->is(Value::Kind::string));
        if (isFlag && boolValue(value) != isTaken) {
            findings.add(Check::idleFlag, step.at(*field),
                         {fmt::format("\"{}\" has no effect here: {}", idle.field, idle.why),
                          "leave it out"});
        }
    }
}

} // namespace

void reviewValues(const ReviewedStep& step, Findings& findings) {
    for (const Field& field : step.operation->fields) {
        const Value* value = step.value(field);
        if (value != nullptr && value->is(Value::Kind::string)) {
            reviewDesignation(step, field, value->asString(), findings);
            if (field.kind == FieldKind::appleScript) {
                reviewAppleScript(step, field, value->asString(), findings);
            }
        }
    }
    reviewIdleFlags(step, findings);
    if (step.is(OperationCode::updateProgressField)) {
        findings.add(Check::silentProgress, {step.index},
                     {"the service does not report progress, so the step does nothing there",
                      "leave it out of scripts that are sent"});
    }
}

} // namespace qv::review
