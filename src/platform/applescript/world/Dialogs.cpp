#include "platform/applescript/world/Dialogs.h"

#include "platform/applescript/world/DialogProgram.h"
#include "platform/applescript/world/applications/BusCalls.h"
#include "platform/applescript/world/context/FilePaths.h"
#include "platform/applescript/world/context/Parameters.h"

#include <fmt/core.h>

#include <algorithm>
#include <cmath>

namespace qv::applescript::world {

namespace {

using Kind = ScriptValue::Kind;

constexpr std::chrono::hours kLongestDialog{24};

std::chrono::milliseconds timeFor(WorldContext& context, double seconds) {
    const std::chrono::milliseconds whole =
        context.end.left(std::chrono::milliseconds(kLongestDialog));
    const double milliseconds = seconds * 1000;
    return milliseconds > 0 && milliseconds < static_cast<double>(whole.count())
               ? std::chrono::milliseconds(static_cast<std::int64_t>(milliseconds))
               : whole;
}

[[noreturn]] void failAsCanceled() { fail(error_number::kUserCanceled, "User canceled."); }

// A button by its number, from 1, or its label.
std::optional<std::size_t> buttonIn(const DialogRequest& request, const ScriptValue* value) {
    if (value == nullptr) {
        return std::nullopt;
    }
    if (value->isNumber()) {
        const double number = numberFrom(*value);
        if (number >= 1 && number <= static_cast<double>(request.buttons.size())) {
            return static_cast<std::size_t>(number) - 1;
        }
    }
    const std::string label = textFrom(*value);
    const auto found = std::ranges::find_if(
        request.buttons, [&](const std::string& each) { return isSameText(each, label); });
    if (found == request.buttons.end()) {
        failToGet(fmt::format("button {}", shown(*value)));
    }
    return static_cast<std::size_t>(found - request.buttons.begin());
}

std::string iconOf(const Command& command) {
    const ScriptValue* const with = command.parameter(Term::withIcon);
    const ScriptValue* const as = command.parameter(Term::as);
    const ScriptValue* const icon = with != nullptr ? with : as;
    if (icon != nullptr && (icon->isConstant(Term::stop) || icon->isConstant(Term::critical) ||
                            (icon->is(Kind::integer) && icon->asInteger() == 0))) {
        return "error";
    }
    const bool isWarning =
        icon != nullptr && (icon->isConstant(Term::caution) || icon->isConstant(Term::warning) ||
                            (icon->is(Kind::integer) && icon->asInteger() == 2));
    return isWarning ? "warning" : "information";
}

DialogRequest requestIn(const Command& command) {
    constexpr std::size_t kMostButtons = 3;
    const bool isAlert = command.name == Term::displayAlert;
    DialogRequest request;
    request.text = textFrom(directOf(command));
    request.title = textParameter(command, Term::withTitle).value_or("");
    if (isAlert) {
        request.title = request.text;
        request.text = textParameter(command, Term::message).value_or(request.text);
    }
    if (const ScriptValue* const buttons = command.parameter(Term::buttons)) {
        std::ranges::transform(listFrom(*buttons), std::back_inserter(request.buttons), textFrom);
    } else {
        request.buttons =
            isAlert ? std::vector<std::string>{"OK"} : std::vector<std::string>{"Cancel", "OK"};
    }
    if (request.buttons.empty() || request.buttons.size() > kMostButtons) {
        fail(-50, "A dialog has one to three buttons.");
    }
    request.icon = iconOf(command);
    request.answer = textParameter(command, Term::defaultAnswer);
    request.hidesAnswer = flagParameter(command, Term::hiddenAnswer);
    request.defaultButton = buttonIn(request, command.parameter(Term::defaultButton))
                                .value_or(request.buttons.size() - 1);
    request.cancelButton = buttonIn(request, command.parameter(Term::cancelButton));
    if (!request.cancelButton && !isAlert) {
        const auto named = std::ranges::find(request.buttons, "Cancel");
        if (named != request.buttons.end()) {
            request.cancelButton = static_cast<std::size_t>(named - request.buttons.begin());
        }
    }
    return request;
}

} // namespace

ScriptValue displayDialog(WorldContext& context, const Command& command) {
    DialogProgram program(context);
    const DialogRequest request = requestIn(command);
    const ScriptValue* const givesUp = command.parameter(Term::givingUpAfter);
    const DialogAnswer answer =
        program.ask(request, timeFor(context, givesUp == nullptr ? 0 : numberFrom(*givesUp)));
    const bool isCancelButton =
        request.cancelButton && answer.button == request.buttons[*request.cancelButton];
    if (!answer.gaveUp && (answer.isCanceled || isCancelButton)) {
        failAsCanceled();
    }
    ScriptValue::Fields fields = {
        {std::string(wordsOf(Term::buttonReturned)), ScriptValue::text(answer.button)}};
    if (request.answer) {
        fields.emplace_back(wordsOf(Term::textReturned), ScriptValue::text(answer.text));
    }
    if (givesUp != nullptr) {
        fields.emplace_back(wordsOf(Term::gaveUp), ScriptValue::boolean(answer.gaveUp));
    }
    return ScriptValue::record(std::move(fields));
}

ScriptValue chooseFromList(WorldContext& context, const Command& command) {
    DialogProgram program(context);
    ListRequest request;
    request.text = textParameter(command, Term::withPrompt).value_or("");
    request.title = textParameter(command, Term::withTitle).value_or("");
    request.choosesSeveral = flagParameter(command, Term::multipleSelectionsAllowed);
    std::ranges::transform(listFrom(directOf(command)), std::back_inserter(request.items),
                           textFrom);
    if (const ScriptValue* const chosen = command.parameter(Term::defaultItems)) {
        std::ranges::transform(listFrom(*chosen), std::back_inserter(request.chosen), textFrom);
    }
    const DialogAnswer answer = program.choose(request, timeFor(context, 0));
    if (answer.isCanceled) {
        return ScriptValue::boolean(false);
    }
    std::vector<ScriptValue> chosen;
    std::ranges::transform(answer.chosen, std::back_inserter(chosen),
                           [](const std::string& each) { return ScriptValue::text(each); });
    return ScriptValue::list(std::move(chosen));
}

ScriptValue chooseFile(WorldContext& context, const Command& command) {
    DialogProgram program(context);
    FileRequest request;
    request.title = textParameter(command, Term::withPrompt).value_or("");
    request.choosesFolder = command.name == Term::chooseFolder;
    request.choosesSeveral = flagParameter(command, Term::multipleSelectionsAllowed);
    if (const ScriptValue* const folder = command.parameter(Term::defaultLocation)) {
        request.folder =
            folder->is(Kind::file) ? folder->asFilePath() : posixPathOf(textFrom(*folder));
    }
    const DialogAnswer answer = program.chooseFiles(request, timeFor(context, 0));
    if (answer.isCanceled || answer.chosen.empty()) {
        failAsCanceled();
    }
    std::vector<ScriptValue> files;
    for (const std::string& each : answer.chosen) {
        files.push_back(
            ScriptValue::file(request.choosesFolder ? joined(each, "") : each, Term::alias));
    }
    return request.choosesSeveral ? ScriptValue::list(std::move(files)) : files.front();
}

ScriptValue displayNotification(WorldContext& context, const Command& command) {
    std::string body = command.hasDirect ? textFrom(command.direct) : std::string();
    const std::optional<std::string> subtitle = textParameter(command, Term::subtitle);
    if (subtitle && !subtitle->empty()) {
        body = body.empty() ? *subtitle : *subtitle + "\n" + body;
    }
    const std::string title = textParameter(command, Term::withTitle).value_or("");
    if (!showNotification(context, title.empty() ? body : title, title.empty() ? "" : body)) {
        fail(error_number::kNoUserInteraction, "No user interaction allowed.");
    }
    return {};
}

} // namespace qv::applescript::world
