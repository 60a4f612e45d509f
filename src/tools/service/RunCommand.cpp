#include "client/QVCatalogHelperClient.h"
#include "platform/foundation/configuration/Configuration.h"
#include "platform/foundation/os/Deadline.h"
#include "platform/foundation/os/FileBytes.h"
#include "platform/foundation/plist/PropertyList.h"
#include "platform/foundation/process/state/LaunchMark.h"
#include "platform/foundation/process/state/TerminationWatch.h"
#include "platform/foundation/values/Description.h"
#include "script/step/StepText.h"
#include "tools/scripts/FindingReport.h"
#include "tools/scripts/ScriptFindings.h"
#include "tools/scripts/ScriptSource.h"
#include "tools/service/RootCommand.h"
#include "tools/service/RunProgress.h"
#include "tools/service/RunText.h"
#include "tools/service/ServiceCommands.h"
#include "tools/terminal/Input.h"
#include "tools/terminal/Json.h"
#include "tools/terminal/Terminal.h"

#include <fmt/core.h>

#include <algorithm>
#include <chrono>
#include <optional>
#include <unistd.h>

namespace qv::tools {

namespace {

using Style = Terminal::Style;

// A user of this program may have anything done as root, so in an installed system only root
// may. A developer's build talks to the developer's own service.
bool mayRun() { return configuration::kIsDevelopment || ::geteuid() == 0; }

std::string errorText(const Error& error) {
    return fmt::format("{} ({} {})", onOneLine(error.localizedDescription()), error.domain(),
                       error.code());
}

// The place of an error and the errors that it is made from, a line each.
void showCauses(Error error) {
    Terminal& out = Terminal::standardOutput();
    while (error) {
        const Value info = error.userInfo();
        const Value* path = info.find(error_key::kFilePath);
        if (path != nullptr && path->is(Value::Kind::string)) {
            out.line(
                fmt::format("  at:    {}", out.styled(onOneLine(path->asString()), Style::plain)));
        }
        const Value* underlying = info.find(error_key::kUnderlyingError);
        error = underlying != nullptr && underlying->is(Value::Kind::error) ? underlying->asError()
                                                                            : Error();
        if (error) {
            out.line(fmt::format("  cause: {}", out.styled(errorText(error), Style::plain)));
        }
    }
}

// The place of a step in the script's file.
std::optional<TextPosition> placeOf(const ScriptSource& script, std::size_t step) {
    Finding finding;
    finding.step = step;
    return script.positionOf(finding);
}

std::size_t countOf(const Value& steps) {
    return steps.is(Value::Kind::array) ? steps.asArray().size() : 0;
}

// The steps of a short run, of a long one those that failed.
void showResults(const RunEntry& run) {
    constexpr std::size_t kMostSteps = 40;
    const bool all = run.steps.size() <= kMostSteps;
    std::size_t shown = 0;
    for (const StepEntry& step : run.steps) {
        if ((all || step.outcome == "failed") && ++shown <= kMostSteps) {
            showStep(step);
        }
    }
    if (!all) {
        Terminal::standardOutput().line(
            fmt::format("`qvcatalog log {}` shows every step.", run.run));
    }
}

// The last line: the run as far as it is recorded.
void showRecord(const RunEntry& run) {
    std::string rest = " in " + secondsText(run.microseconds);
    if (run.outcome.empty()) {
        rest = "; the rest is not recorded yet";
    } else if (run.lostSteps > 0) {
        rest += fmt::format("; {} steps are not recorded", run.lostSteps);
    }
    Terminal::standardOutput().line(
        fmt::format("  run:   {}, {}{}", run.run, countsText(run), rest));
}

void showOutcome(const ScriptOutcome& outcome, const ScriptSource& script) {
    Terminal& out = Terminal::standardOutput();
    const std::size_t count = countOf(script.steps);
    if (outcome.success) {
        out.line(out.styled(
            fmt::format("The script ran to its end: {} step{}.", count, count == 1 ? "" : "s"),
            Style::good));
        return;
    }
    const auto index = static_cast<std::size_t>(outcome.errorScriptStepIndex);
    out.line(out.styled(
        index < count
            ? fmt::format("The script failed at step {} of {} (index {}).", index + 1, count, index)
            : std::string("The script failed."),
        Style::bad));
    if (index < count) {
        out.line(fmt::format("  step:  {}",
                             out.styled(stepText(script.steps.asArray()[index]), Style::strong)));
        if (const auto place = placeOf(script, index)) {
            out.line(fmt::format("  place: {}:{}:{}", out.styled(script.file, Style::plain),
                                 place->line, place->column));
        }
    }
    if (outcome.error) {
        out.line(fmt::format("  error: {}", out.styled(errorText(outcome.error), Style::plain)));
        showCauses(outcome.error);
    }
}

using Pairs = std::vector<std::pair<Value, Value>>;

// One line of --json.
void printRecord(std::string_view kind, Pairs pairs) {
    pairs.insert(pairs.begin(), {Value::string("record"), Value::string(kind)});
    Terminal::standardOutput().line(jsonText(Value::dictionary(std::move(pairs)), true));
}

void printOutcome(const ScriptOutcome& outcome, const ScriptSource& script,
                  const std::optional<RunEntry>& run) {
    Pairs pairs = {
        {Value::string("success"), Value::boolean(outcome.success)},
        {Value::string("errorScriptStepIndex"), Value::integer(outcome.errorScriptStepIndex)}};
    const auto index = static_cast<std::size_t>(outcome.errorScriptStepIndex);
    const auto place = index < countOf(script.steps) ? placeOf(script, index) : std::nullopt;
    if (place) {
        pairs.emplace_back(Value::string("line"), Value::unsignedInteger(place->line));
        pairs.emplace_back(Value::string("column"), Value::unsignedInteger(place->column));
    }
    if (outcome.error) {
        pairs.emplace_back(Value::string("error"), Value::error(outcome.error));
    }
    if (run) {
        pairs.emplace_back(Value::string("run"), Value::string(run->run));
        const bool isComplete = !run->outcome.empty() && run->lostSteps == 0;
        pairs.emplace_back(Value::string("recordIsComplete"), Value::boolean(isComplete));
        if (!run->outcome.empty()) {
            pairs.emplace_back(Value::string("microseconds"),
                               Value::unsignedInteger(run->microseconds));
        }
    }
    printRecord("outcome", std::move(pairs));
}

// The remedy when nobody listens at the socket.
std::string remedyFor(const std::string& socketPath) {
    if (socketPath != QVCatalogHelperClient::defaultSocketPath()) {
        return fmt::format("; without --socket it is looked for at {}",
                           QVCatalogHelperClient::defaultSocketPath());
    }
    if (configuration::kIsDevelopment) {
        return "; a developer's build is served while `packaging/development/service BUILD-FOLDER "
               "COMMAND` in its checkout runs a command, and `./run FILE` does all of it";
    }
    return "; as root: systemctl enable --now com.larkwen.qvcatalog.examiner.socket "
           "com.larkwen.qvcatalog.helper.socket";
}

// The service goes on with a script that it was sent. `run`: as far as it is recorded.
std::string whatGoesOn(bool wasSent, const std::optional<RunEntry>& run) {
    if (!wasSent) {
        return "the script was not sent";
    }
    if (!run) {
        return "the service carries the script on to its end, and `qvcatalog log` tells how it "
               "went";
    }
    return fmt::format(
        "the service carries the script on to its end ({} of {} steps are recorded), "
        "and `qvcatalog log {}` tells how it went",
        run->steps.size(), run->stepCount, run->run);
}

tl::unexpected<Failure> serviceFailure(const Error& error, const RunOptions& options, bool wasSent,
                                       const std::optional<RunEntry>& run) {
    std::string reason = error.localizedDescription();
    switch (static_cast<xpc::ClientErrorCode>(error.code())) {
    case xpc::ClientErrorCode::rejected:
    case xpc::ClientErrorCode::unfit:
        return failure(ExitStatus::notAuthorised, std::move(reason));
    case xpc::ClientErrorCode::timedOut:
        return failure(ExitStatus::timedOut,
                       fmt::format("the service did not answer within {} s; {}", *options.timeout,
                                   whatGoesOn(wasSent, run)));
    case xpc::ClientErrorCode::cancelled:
        return failure(ExitStatus::cancelled, "cancelled; " + whatGoesOn(wasSent, run));
    case xpc::ClientErrorCode::unreachable:
        break;
    default:
        return failure(ExitStatus::unreachable, std::move(reason));
    }
    const Value info = error.userInfo();
    if (const Value* cause = info.find(error_key::kUnderlyingError)) {
        reason = fmt::format("The service cannot be reached at {}: {}", options.socketPath,
                             errnoText(static_cast<int>(cause->asError().code())));
    }
    return failure(ExitStatus::unreachable, reason + remedyFor(options.socketPath));
}

// The bytes that the service is sent: a list of exact steps as the file has it.
tl::expected<std::string, Error> dataOf(const ScriptSource& script) {
    return script.isExact
               ? script.content
               : PropertyList::dataWithPropertyList(script.steps, PropertyListFormat::binary);
}

// Tells what looks like a mistake in a script that is about to be sent, briefly. False if it must
// not be sent for that.
bool mayBeSent(const RunOptions& options, const ScriptSource& script) {
    if (options.noLint) {
        return true;
    }
    constexpr std::size_t kMostShown = 10;
    const ScriptFindings found = findingsOf(script);
    for (std::size_t i = 0; i < std::min(kMostShown, found.findings.size()); ++i) {
        remark(findingText(script, found.findings[i]));
    }
    if (found.findings.size() > kMostShown) {
        remark(fmt::format("{} in all; `qvcatalog lint` shows them",
                           countText(found.errors, found.warnings)));
    }
    if (options.json && !found.findings.empty()) {
        printRecord("findings",
                    {{Value::string("findings"), findingsAsValue(script, found.findings)}});
    }
    return !options.strict || found.findings.empty();
}

RunProgress::Manner mannerOf(const RunOptions& options) {
    if (options.json) {
        return RunProgress::Manner::json;
    }
    return Terminal::standardError().isQuiet() && options.recordID == nullptr
               ? RunProgress::Manner::silent
               : RunProgress::Manner::forPeople;
}

// An end to waiting that holds for connecting and for the reply together.
WaitForService waitUntil(const Deadline& deadline, const TerminationWatch& signals) {
    WaitForService wait{.time = std::nullopt, .cancelDescriptor = signals.descriptor()};
    if (deadline.canPass()) {
        wait.time = deadline.left(std::chrono::milliseconds::max());
    }
    return wait;
}

Result send(const RunOptions& options, const ScriptSource& script, const std::string& data) {
    using Seconds = std::chrono::duration<double>;
    const Deadline deadline =
        options.timeout ? Deadline::after(std::chrono::duration_cast<Deadline::Clock::duration>(
                              Seconds(*options.timeout)))
                        : Deadline();
    // Empties the signal mask before the watch fills it. Connecting tells of an error.
    static_cast<void>(prepareMarkedProcess());
    TerminationWatch signals;
    RunProgress progress(script.steps, mannerOf(options), signals.descriptor());
    auto client = QVCatalogHelperClient::connect(options.socketPath, ClientGroup::untilReply,
                                                 waitUntil(deadline, signals));
    if (!client) {
        progress.abandon();
        signals.take();
        return serviceFailure(client.error(), options, false, std::nullopt);
    }
    const auto outcome = client->executeScriptData(data, waitUntil(deadline, signals));
    if (!outcome) {
        const auto run = progress.abandon();
        signals.take();
        return serviceFailure(outcome.error(), options, true, run);
    }
    const std::optional<RunEntry> run = progress.finish();
    signals.take(); // it is over, and its outcome is told
    if (options.recordID != nullptr && run) {
        *options.recordID = run->run;
    }
    if (options.json) {
        printOutcome(*outcome, script, run);
    } else if (!Terminal::standardOutput().isQuiet() || !outcome->success) {
        if (run) {
            showResults(*run);
        }
        showOutcome(*outcome, script);
        if (run) {
            showRecord(*run);
        } else if (progress.readsJournal()) {
            remark("the journal does not have the record of this run yet; `qvcatalog log` shows it "
                   "once it has");
        }
    }
    return outcome->success ? ExitStatus::success : ExitStatus::failed;
}

} // namespace

Result run(const RunOptions& options) {
    // The call may execute another program, so nothing is printed before.
    std::optional<Failure> refusal =
        mayRun()
            ? becomeAcceptedClient()
            : Failure{ExitStatus::notAuthorised, "only root may run scripts with this program"};
    if (options.json) {
        printRecord("run", {{Value::string("format"), Value::integer(kJSONFormat)},
                            {Value::string("version"), Value::string(configuration::kVersion)}});
    }
    if (refusal) {
        return tl::unexpected(std::move(*refusal));
    }
    const auto script = readScript(options.file);
    if (!script) {
        return tl::unexpected(script.error());
    }
    if (!script->canBeSent()) {
        return refuseFaultyScript(*script, options.json);
    }
    if (!mayBeSent(options, *script)) {
        return failure(ExitStatus::faulty, "the script has mistakes and was not sent");
    }
    const auto data = dataOf(*script);
    if (!data) {
        return fileFailure(ExitStatus::usage, options.file, data.error());
    }
    return send(options, *script, *data);
}

} // namespace qv::tools
