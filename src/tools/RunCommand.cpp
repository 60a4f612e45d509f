#include "client/QVCatalogHelperClient.h"
#include "platform/foundation/configuration/Configuration.h"
#include "platform/foundation/os/FileBytes.h"
#include "platform/foundation/plist/PropertyList.h"
#include "platform/foundation/values/Description.h"
#include "script/step/StepText.h"
#include "tools/Commands.h"
#include "tools/FindingReport.h"
#include "tools/Input.h"
#include "tools/Json.h"
#include "tools/ScriptFindings.h"
#include "tools/ScriptSource.h"
#include "tools/Terminal.h"

#include <fmt/core.h>

#include <algorithm>
#include <unistd.h>

namespace qv::tools {

namespace {

using Style = Terminal::Style;

// Whoever may use this program may have anything done as root, so in an installed system only root
// may. A developer's build talks to the developer's own service.
bool mayRun() { return configuration::kIsDevelopment || ::geteuid() == 0; }

Value outcomeAsValue(const ScriptOutcome& outcome) {
    std::vector<std::pair<Value, Value>> pairs = {
        {Value::string("success"), Value::boolean(outcome.success)},
        {Value::string("errorScriptStepIndex"), Value::integer(outcome.errorScriptStepIndex)}};
    if (outcome.error) {
        pairs.emplace_back(Value::string("error"), Value::error(outcome.error));
    }
    return Value::dictionary(std::move(pairs));
}

std::string errorText(const Error& error) {
    return fmt::format("{} ({} {})", onOneLine(error.localizedDescription()), error.domain(),
                       error.code());
}

// What an error says of the place and of the errors that it is made from, a line each.
void showCauses(Error error) {
    Terminal& out = Terminal::standardOutput();
    while (error) {
        const Value info = error.userInfo();
        const Value* path = info.find(error_key::kFilePath);
        if (path != nullptr && path->is(Value::Kind::string)) {
            out.line(fmt::format("  at:    {}", onOneLine(path->asString())));
        }
        const Value* underlying = info.find(error_key::kUnderlyingError);
        error = underlying != nullptr && underlying->is(Value::Kind::error) ? underlying->asError()
                                                                            : Error();
        if (error) {
            out.line(fmt::format("  cause: {}", errorText(error)));
        }
    }
}

void showOutcome(const ScriptOutcome& outcome, const Value& steps) {
    Terminal& out = Terminal::standardOutput();
    const std::size_t count = steps.is(Value::Kind::array) ? steps.asArray().size() : 0;
    if (outcome.success) {
        out.line(
            out.styled(fmt::format("The script ran to its end: {} steps.", count), Style::good));
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
                             out.styled(stepText(steps.asArray()[index]), Style::strong)));
    }
    if (outcome.error) {
        out.line(fmt::format("  error: {}", out.styled(errorText(outcome.error), Style::plain)));
        showCauses(outcome.error);
    }
}

// Nobody listens at the socket: what the caller can do about it.
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

tl::unexpected<Failure> serviceFailure(const Error& error, const std::string& socketPath) {
    std::string reason = error.localizedDescription();
    const auto code = static_cast<xpc::ClientErrorCode>(error.code());
    if (code == xpc::ClientErrorCode::rejected || code == xpc::ClientErrorCode::unfit) {
        return failure(ExitStatus::notAuthorised, std::move(reason));
    }
    if (code != xpc::ClientErrorCode::unreachable) {
        return failure(ExitStatus::unreachable, std::move(reason));
    }
    const Value info = error.userInfo();
    if (const Value* cause = info.find(error_key::kUnderlyingError)) {
        reason = fmt::format("The service cannot be reached at {}: {}", socketPath,
                             errnoText(static_cast<int>(cause->asError().code())));
    }
    return failure(ExitStatus::unreachable, reason + remedyFor(socketPath));
}

// What the service is sent: a list of exact steps as the file has it.
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
        complain(findingText(script, found.findings[i]));
    }
    if (found.findings.size() > kMostShown) {
        complain(fmt::format("{} in all; `qvcatalog lint` shows them",
                             countText(found.errors, found.warnings)));
    }
    return !options.strict || found.findings.empty();
}

} // namespace

Result run(const RunOptions& options) {
    if (!mayRun()) {
        return failure(ExitStatus::notAuthorised, "only root may run scripts with this program");
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
    auto client = QVCatalogHelperClient::connect(options.socketPath);
    if (!client) {
        return serviceFailure(client.error(), options.socketPath);
    }
    tl::expected<ScriptOutcome, Error> outcome;
    {
        const Progress progress("running the script");
        outcome = client->executeScriptData(*data);
    }
    if (!outcome) {
        return serviceFailure(outcome.error(), options.socketPath);
    }
    if (options.json) {
        Terminal::standardOutput().line(jsonText(outcomeAsValue(*outcome)));
    } else {
        showOutcome(*outcome, script->steps);
    }
    return outcome->success ? ExitStatus::success : ExitStatus::failed;
}

} // namespace qv::tools
