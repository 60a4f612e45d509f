#include "platform/applescript/world/Shell.h"

#include "platform/applescript/world/context/CommandRun.h"
#include "platform/applescript/world/context/Parameters.h"
#include "platform/foundation/os/FileBytes.h"
#include "platform/foundation/process/task/Task.h"
#include "platform/workspace/applications/ExecLine.h"

#include <fmt/core.h>

#include <cstring>
#include <string_view>
#include <unistd.h>

namespace qv::applescript::world {

namespace {

using Ending = CommandOutcome::Ending;

constexpr std::int64_t kPrivilegeViolation = -10004;

// Writes carriage returns for line ends, in place.
void alterLineEnds(std::string& text) {
    std::size_t length = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\n' && i > 0 && text[i - 1] == '\r') {
            continue;
        }
        text[length++] = text[i] == '\n' ? '\r' : text[i];
    }
    text.resize(length);
}

std::string asScriptText(std::string bytes) {
    std::string text = validText(std::move(bytes));
    alterLineEnds(text);
    if (text.ends_with('\r')) {
        text.pop_back();
    }
    return text;
}

[[noreturn]] void refuseAsCanceled() { fail(error_number::kUserCanceled, "User canceled."); }

// pkexec reports a refusal with statuses that a command could have as well, and with these words.
bool isRefusal(const CommandOutcome& outcome) {
    constexpr int kDismissed = 126;
    constexpr int kNotAuthorized = 127;
    return (outcome.status == kDismissed || outcome.status == kNotAuthorized) &&
           outcome.errors.starts_with("Error executing command as another user:");
}

[[noreturn]] void failWithOutcome(CommandOutcome& outcome) {
    constexpr int kSignalBase = 128;
    switch (outcome.ending) {
    case Ending::notStarted:
        fail(error_number::kEventFailed,
             fmt::format("The command could not be started: {}.", errnoText(outcome.status)));
    case Ending::tooLong:
        fail(error_number::kOutOfMemory, "Out of memory.");
    case Ending::timedOut:
        fail(error_number::kTimedOut, "AppleEvent timed out.");
    case Ending::interrupted:
        refuseAsCanceled();
    case Ending::signalled:
        fail(kSignalBase + outcome.status,
             fmt::format("The command was ended by signal {} ({}).", outcome.status,
                         ::sigdescr_np(outcome.status) != nullptr ? ::sigdescr_np(outcome.status)
                                                                  : "unknown"));
    case Ending::exited:
        break;
    }
    std::string text = asScriptText(std::move(outcome.errors));
    fail(outcome.status,
         text.empty() ? "The command exited with a non-zero status." : std::move(text));
}

} // namespace

const std::vector<std::string>& Shell::environment() {
    if (!environment_) {
        environment_ = toolEnvironment();
        for (std::string& each : *environment_) {
            if (each.starts_with("PATH=")) {
                each = "PATH=/usr/bin:/bin:/usr/sbin:/sbin";
            }
        }
    }
    return *environment_;
}

ScriptValue Shell::run(const Command& command) {
    const std::string text = textFrom(directOf(command));
    if (text.find('\0') != std::string::npos) {
        fail(error_number::kCannotConvert,
             "Can’t make a command of a text that holds character id 0.");
    }
    const bool needsConsent =
        flagParameter(command, Term::administratorPrivileges) && ::geteuid() != 0;
    SpawnRequest request{.program = "/bin/sh",
                         .words = {"sh", "-c", text},
                         .environment = environment(),
                         .directory = "/",
                         .standard = {},
                         .leads = SpawnRequest::Leads::processGroup};
    if (needsConsent) {
        const std::optional<std::string> program = findProgram("pkexec");
        if (!program) {
            fail(kPrivilegeViolation, "A privilege violation occurred.");
        }
        request.program = *program;
        request.words = {*program, "/bin/sh", "-c", text};
    }
    CommandOutcome outcome = runCommand(std::move(request), end_);
    if (outcome.ending != Ending::exited || outcome.status != 0) {
        if (needsConsent && isRefusal(outcome)) {
            refuseAsCanceled();
        }
        failWithOutcome(outcome);
    }
    return ScriptValue::text(flagParameter(command, Term::alteringLineEndings, true)
                                 ? asScriptText(std::move(outcome.output))
                                 : validText(std::move(outcome.output)));
}

} // namespace qv::applescript::world
