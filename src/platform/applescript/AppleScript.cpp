#include "platform/applescript/AppleScript.h"

#include "platform/applescript/language/Compiler.h"
#include "platform/applescript/running/Interpreter.h"
#include "platform/applescript/world/LinuxWorld.h"
#include "platform/foundation/process/state/ProcessState.h"
#include "platform/foundation/process/state/UserRecord.h"
#include "platform/foundation/process/worker/UserProcesses.h"
#include "platform/foundation/values/ASCII.h"
#include "platform/foundation/values/Description.h"

#include <fmt/core.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <new>
#include <sys/prctl.h>
#include <unistd.h>

namespace qv {

namespace {

using applescript::ScriptError;

namespace key {
constexpr std::string_view kAppName = "NSAppleScriptErrorAppName";
constexpr std::string_view kBriefMessage = "NSAppleScriptErrorBriefMessage";
constexpr std::string_view kMessage = "NSAppleScriptErrorMessage";
constexpr std::string_view kNumber = "NSAppleScriptErrorNumber";
constexpr std::string_view kRange = "NSAppleScriptErrorRange";
constexpr std::string_view kResult = "result";
// The key of the range between the child and its parent.
constexpr std::string_view kLocation = "location";
constexpr std::string_view kLength = "length";
} // namespace key

// The child gets this time after the script's own bound to say so.
constexpr std::chrono::seconds kForTheAnswer{30};
constexpr std::size_t kLongestAnswer = std::size_t{4} << 20U;
constexpr std::size_t kLongestResult = std::size_t{1} << 20U;

// The child tells this of a script that failed.
Value toldOf(const ScriptError& error) {
    std::vector<std::pair<Value, Value>> pairs;
    const auto add = [&](std::string_view name, Value value) {
        pairs.emplace_back(Value::string(name), std::move(value));
    };
    add(key::kNumber, Value::integer(error.number));
    add(key::kBriefMessage, Value::string(error.brief));
    add(key::kMessage, Value::string(error.message()));
    add(key::kAppName, Value::string(error.application));
    if (error.range) {
        add(key::kLocation, Value::unsignedInteger(error.range->location));
        add(key::kLength, Value::unsignedInteger(error.range->length));
    }
    return Value::dictionary(std::move(pairs));
}

AppleScriptError errorFrom(const Value& told) {
    const auto text = [&](std::string_view name) {
        return std::string(told.find(name)->asString());
    };
    AppleScriptError error{.number = told.find(key::kNumber)->asInteger(),
                           .message = text(key::kMessage),
                           .briefMessage = text(key::kBriefMessage),
                           .appName = text(key::kAppName),
                           .range = {}};
    if (const Value* location = told.find(key::kLocation)) {
        error.range = Range{static_cast<std::uint64_t>(location->asInteger()),
                            static_cast<std::uint64_t>(told.find(key::kLength)->asInteger())};
    }
    return error;
}

// The script's process gave no answer.
AppleScriptError errorOfWorker(const Error& error) {
    AppleScriptError result{.number = applescript::error_number::kEventFailed,
                            .message = "AppleEvent handler failed.",
                            .briefMessage = {},
                            .appName = {},
                            .range = {}};
    if (workerFailure(error) == ETIMEDOUT) {
        result.number = applescript::error_number::kTimedOut;
        result.message = "AppleEvent timed out.";
    } else if (workerFailure(error) != ECHILD) { // it was not started
        result.message = error.localizedDescription();
    }
    result.briefMessage = result.message;
    return result;
}

// The value that the work gives, or its failure.
template <typename Carry> Value carriedThrough(const Carry& work) {
    try {
        return work();
    } catch (const ScriptError& error) {
        return toldOf(error);
    } catch (const std::bad_alloc&) {
        return toldOf({.number = applescript::error_number::kOutOfMemory,
                       .brief = "Out of memory.",
                       .application = {}});
    }
}

WorkResult carriedOut(const std::string& source, const ProcessIdentity::Shared& requester,
                      AppleScript::Until until,
                      const std::shared_ptr<WorkspaceService>& workspace) {
    resetFileModeMask();
    ::prctl(PR_SET_PDEATHSIG, SIGTERM); // a shell's command gets it as well
    return carriedThrough([&] {
        const std::unique_ptr<applescript::Tree> tree = applescript::compile(source);
        if (until == AppleScript::Until::compiled) {
            return Value::dictionary({});
        }
        const applescript::Limits limits;
        applescript::LinuxWorld world(requester, {.workspace = workspace},
                                      Deadline::after(limits.time));
        const applescript::ScriptValue result = applescript::execute(*tree, world, limits);
        return Value::dictionary({{key::kResult, Value::string(applescript::sourceText(
                                                     result, world, kLongestResult))}});
    });
}

std::optional<AppleScriptError> errorIn(const Value& told) {
    return told.find(key::kNumber) != nullptr ? std::optional(errorFrom(told)) : std::nullopt;
}

// Letters, digits and a few signs need no quotes.
std::string printed(std::string_view text) {
    const bool isBare = !text.empty() && std::ranges::all_of(text, [](char c) {
        return isLetterOrDigit(c) || std::string_view("_$/:.").find(c) != std::string_view::npos;
    });
    return isBare ? std::string(text) : quotedText(text);
}

} // namespace

Value AppleScriptError::errorInformation() const {
    std::vector<std::pair<Value, Value>> pairs;
    const auto add = [&](std::string_view name, Value value) {
        pairs.emplace_back(Value::string(name), std::move(value));
    };
    if (!appName.empty()) {
        add(key::kAppName, Value::string(appName));
    }
    add(key::kBriefMessage, Value::string(briefMessage));
    add(key::kMessage, Value::string(message));
    add(key::kNumber, Value::integer(number));
    if (range) {
        add(key::kRange,
            Value::string(fmt::format("NSRange: {{{}, {}}}", range->location, range->length)));
    }
    return Value::dictionary(std::move(pairs));
}

std::string AppleScriptError::description() const {
    std::string text = "{\n";
    const Value information = errorInformation();
    const DictionaryView pairs = information.asDictionary();
    for (std::size_t index = 0; index < pairs.size(); ++index) {
        text += fmt::format("    {} = {};\n", pairs.key(index),
                            printed(qv::description(pairs.value(index))));
    }
    return text + "}";
}

std::optional<AppleScriptError> AppleScript::compilationError() const {
    return errorIn(carriedThrough([&] {
        static_cast<void>(applescript::compile(source_));
        return Value::dictionary({});
    }));
}

AppleScript::Outcome
AppleScript::compileAndExecute(const ProcessIdentity::Shared& requester, UserProcesses& processes,
                               Until until,
                               const std::shared_ptr<WorkspaceService>& workspace) const {
    const uid_t user = ::geteuid();
    const Work work{
        .as = userRecord(user).value_or(UserRecord{user, ::getegid(), {}, {}, {}}),
        .run = [&](const Value&) { return carriedOut(source_, requester, until, workspace); },
        .patience = applescript::Limits{}.time + kForTheAnswer,
        .longest = kLongestAnswer,
        .descriptors = {requester->pidfd()}};
    const WorkResult told = processes.perform(user, work);
    if (!told) {
        return {.error = errorOfWorker(told.error()), .result = {}};
    }
    if (std::optional<AppleScriptError> error = errorIn(*told)) {
        return {.error = std::move(error), .result = {}};
    }
    const Value* result = told->find(key::kResult);
    return {.error = std::nullopt,
            .result = result != nullptr ? std::string(result->asString()) : ""};
}

} // namespace qv
