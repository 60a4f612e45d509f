#include "platform/applescript/world/DialogProgram.h"

#include "platform/applescript/world/context/CommandRun.h"
#include "platform/applescript/world/context/Parameters.h"
#include "platform/workspace/applications/ExecLine.h"

#include <algorithm>
#include <array>

namespace qv::applescript::world {

namespace {

// Zenity asks the toolkit to take underscores in buttons as marks of shortcuts.
std::string labelText(std::string_view label) {
    std::string text;
    for (const char each : label) {
        text.append(each == '_' ? 2 : 1, each);
    }
    return text;
}

// The buttons in the order of a program's places for them: the one that Return presses, the one
// that stands for closing the window, and the rest.
std::vector<std::string> arranged(const DialogRequest& request) {
    std::vector<std::string> buttons = {request.buttons[request.defaultButton]};
    const auto add = [&](std::size_t index) {
        if (std::ranges::find(buttons, request.buttons[index]) == buttons.end()) {
            buttons.push_back(request.buttons[index]);
        }
    };
    if (request.cancelButton) {
        add(*request.cancelButton);
    }
    for (std::size_t index = 0; index < request.buttons.size(); ++index) {
        add(index);
    }
    return buttons;
}

std::vector<std::string> zenityWords(const DialogRequest& request,
                                     const std::vector<std::string>& buttons) {
    const bool hasOneButton = buttons.size() == 1;
    std::vector<std::string> words = {request.answer ? "--entry"
                                      : hasOneButton ? "--info"
                                                     : "--question",
                                      "--text=" + request.text, "--title=" + request.title,
                                      "--ok-label=" + labelText(buttons[0])};
    if (!request.answer) {
        words.emplace_back("--no-markup");
        words.push_back("--icon-name=dialog-" + request.icon);
    } else {
        words.push_back("--entry-text=" + *request.answer);
        if (request.hidesAnswer) {
            words.emplace_back("--hide-text");
        }
    }
    if (!hasOneButton) {
        words.push_back("--cancel-label=" + labelText(buttons[1]));
    }
    if (buttons.size() > 2) {
        words.push_back("--extra-button=" + labelText(buttons[2]));
    }
    return words;
}

std::vector<std::string> kdialogWords(const DialogRequest& request,
                                      const std::vector<std::string>& buttons) {
    std::vector<std::string> words = {"--title", request.title};
    const auto add = [&](std::initializer_list<std::string> more) {
        words.insert(words.end(), more);
    };
    if (request.answer) {
        add({request.hidesAnswer ? "--password" : "--inputbox", request.text, *request.answer});
        return words;
    }
    constexpr std::array kLabels = {"--yes-label", "--no-label", "--cancel-label"};
    constexpr std::array kKinds = {"--msgbox", "--yesno", "--yesnocancel"};
    for (std::size_t i = 0; buttons.size() > 1 && i < buttons.size(); ++i) {
        add({kLabels.at(i), buttons[i]});
    }
    add({kKinds.at(buttons.size() - 1), request.text});
    return words;
}

std::vector<std::string> linesOf(std::string_view text) {
    std::vector<std::string> lines;
    while (!text.empty()) {
        const std::size_t end = std::min(text.find('\n'), text.size());
        lines.emplace_back(text.substr(0, end));
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return lines;
}

std::string withoutLineEnd(std::string text) {
    if (text.ends_with('\n')) {
        text.pop_back();
    }
    return text;
}

} // namespace

struct DialogProgram::Outcome {
    bool gaveUp = false;
    std::size_t status = 0;
    std::string output;
};

DialogProgram::DialogProgram(WorldContext& context) : context_(&context) {
    static_cast<void>(context.screenSession());
    for (const std::string_view name : {"zenity", "kdialog"}) {
        if (const auto found = findProgram(name); found && program_.empty()) {
            program_ = *found;
            isZenity_ = name == "zenity";
        }
    }
    if (program_.empty()) {
        fail(error_number::kNoUserInteraction, "No user interaction allowed.");
    }
}

DialogProgram::Outcome DialogProgram::run(std::vector<std::string> words,
                                          std::chrono::milliseconds time) {
    const LaunchSession& session = context_->screenSession();
    constexpr std::chrono::milliseconds kToEnd{2000};
    words.insert(words.begin(), program_);
    const WorkResult result = context_->performAs(
        session.user,
        [&]() -> WorkResult {
            constexpr std::size_t kLongest = std::size_t{1} << 20U;
            const CommandOutcome outcome = runCommand({.program = program_,
                                                       .words = words,
                                                       .environment = session.environment(),
                                                       .directory = "/",
                                                       .standard = {}},
                                                      Deadline::after(time), kLongest);
            const bool hasExited = outcome.ending == CommandOutcome::Ending::exited;
            return Value::array({Value::boolean(outcome.ending == CommandOutcome::Ending::timedOut),
                                 Value::integer(hasExited ? outcome.status : -1),
                                 Value::data(outcome.output)});
        },
        time + kToEnd);
    const auto parts =
        result && result->is(Value::Kind::array) ? result->asArray() : std::span<const Value>();
    const bool isWhole = parts.size() == 3 && parts[0].is(Value::Kind::boolean) &&
                         parts[1].is(Value::Kind::integer) && parts[2].is(Value::Kind::data);
    constexpr std::int64_t kMostStatus = 2;
    if (!isWhole || (!parts[0].asBoolean() &&
                     (parts[1].asInteger() < 0 || parts[1].asInteger() > kMostStatus))) {
        fail(error_number::kNoUserInteraction, "No user interaction allowed.");
    }
    return {.gaveUp = parts[0].asBoolean(),
            .status = static_cast<std::size_t>(std::max<std::int64_t>(parts[1].asInteger(), 0)),
            .output = validText(withoutLineEnd(std::string(parts[2].asData())))};
}

DialogAnswer DialogProgram::ask(const DialogRequest& request, std::chrono::milliseconds time) {
    const std::vector<std::string> buttons = arranged(request);
    const Outcome outcome =
        run(isZenity_ ? zenityWords(request, buttons) : kdialogWords(request, buttons), time);
    DialogAnswer answer;
    answer.gaveUp = outcome.gaveUp;
    if (outcome.gaveUp) {
        answer.text = request.answer.value_or("");
        return answer;
    }
    // Zenity writes the text of its third button, and has the status of the second for it.
    const bool isThird =
        isZenity_ && outcome.status == 1 && buttons.size() > 2 && outcome.output == buttons[2];
    const std::size_t pressed = isThird ? 2 : outcome.status;
    answer.isCanceled = pressed >= buttons.size();
    answer.button = answer.isCanceled ? std::string() : buttons[pressed];
    answer.text = pressed == 0 ? outcome.output : request.answer.value_or("");
    return answer;
}

DialogAnswer DialogProgram::chosenBy(std::vector<std::string> words,
                                     std::chrono::milliseconds time) {
    const Outcome outcome = run(std::move(words), time);
    DialogAnswer answer;
    answer.gaveUp = outcome.gaveUp;
    answer.isCanceled = outcome.gaveUp || outcome.status != 0;
    if (!answer.isCanceled) {
        answer.chosen = linesOf(outcome.output);
    }
    return answer;
}

DialogAnswer DialogProgram::choose(const ListRequest& request, std::chrono::milliseconds time) {
    std::vector<std::string> words;
    const auto isChosen = [&](const std::string& item) {
        return std::ranges::find(request.chosen, item) != request.chosen.end();
    };
    if (isZenity_) {
        words = {"--list", "--text=" + request.text, "--title=" + request.title, "--separator=\n",
                 "--hide-header"};
        // Only lists with buttons can have items that are chosen already.
        const bool hasButtons = request.choosesSeveral || !request.chosen.empty();
        if (hasButtons) {
            words.insert(words.end(), {request.choosesSeveral ? "--checklist" : "--radiolist",
                                       "--column=", "--column=item", "--print-column=2"});
        } else {
            words.emplace_back("--column=item");
        }
        for (const std::string& each : request.items) {
            if (hasButtons) {
                words.emplace_back(isChosen(each) ? "TRUE" : "FALSE");
            }
            words.push_back(each);
        }
        return chosenBy(std::move(words), time);
    }
    words = {"--title", request.title, "--separate-output",
             request.choosesSeveral ? "--checklist" : "--radiolist", request.text};
    for (const std::string& each : request.items) {
        words.insert(words.end(), {each, each, isChosen(each) ? "on" : "off"});
    }
    return chosenBy(std::move(words), time);
}

DialogAnswer DialogProgram::chooseFiles(const FileRequest& request,
                                        std::chrono::milliseconds time) {
    std::vector<std::string> words;
    if (isZenity_) {
        words = {"--file-selection", "--title=" + request.title, "--separator=\n"};
        if (request.choosesFolder) {
            words.emplace_back("--directory");
        }
        if (request.choosesSeveral) {
            words.emplace_back("--multiple");
        }
        if (!request.folder.empty()) {
            words.push_back("--filename=" + request.folder);
        }
        return chosenBy(std::move(words), time);
    }
    words = {"--title", request.title};
    if (request.choosesSeveral) {
        words.insert(words.end(), {"--multiple", "--separate-output"});
    }
    words.insert(words.end(),
                 {request.choosesFolder ? "--getexistingdirectory" : "--getopenfilename",
                  request.folder.empty() ? context_->user().home : request.folder});
    return chosenBy(std::move(words), time);
}

} // namespace qv::applescript::world
