#include "platform/applescript/world/StandardAdditions.h"

#include "platform/applescript/world/Dialogs.h"
#include "platform/applescript/world/PathTo.h"
#include "platform/applescript/world/SystemFacts.h"
#include "platform/applescript/world/applications/ApplicationTarget.h"
#include "platform/applescript/world/context/FilePaths.h"
#include "platform/applescript/world/context/Parameters.h"
#include "platform/applescript/world/objects/FileAnswers.h"
#include "platform/foundation/os/FileBytes.h"
#include "platform/foundation/values/URL.h"
#include "platform/workspace/applications/ExecLine.h"
#include "platform/workspace/launch/Launcher.h"

#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <ctime>
#include <thread>
#include <unistd.h>

namespace qv::applescript::world {

namespace {

ScriptValue delay(WorldContext& context, const Command& command) {
    constexpr std::chrono::hours kLongest{24 * 365};
    const double seconds = command.hasDirect ? numberFrom(command.direct) : 1;
    const bool isShort = seconds < std::chrono::duration<double>(kLongest).count();
    const auto wanted = isShort ? std::chrono::duration_cast<std::chrono::milliseconds>(
                                      std::chrono::duration<double>(std::max(seconds, 0.0)))
                                : std::chrono::milliseconds(kLongest);
    const auto time = context.end.left(wanted);
    std::this_thread::sleep_for(time);
    if (time < wanted) {
        fail(error_number::kTimedOut, "AppleEvent timed out.");
    }
    return {};
}

// A text for people, whatever the value is.
std::string loggedText(const ScriptValue& value) {
    return value.is(ScriptValue::Kind::text) ? value.asText() : shown(value);
}

ScriptValue log(WorldContext& /*context*/, const Command& command) {
    const std::string line =
        (command.hasDirect ? loggedText(command.direct) : std::string()) + "\n";
    static_cast<void>(writeAll(STDERR_FILENO, line)); // nobody may be there to read it
    return {};
}

ScriptValue say(WorldContext& context, const Command& command) {
    const std::string text = textFrom(directOf(command));
    const LaunchSession* const session = context.session();
    const auto program = findProgram("spd-say");
    if (session == nullptr || session->runtimeFolder.empty() || !program) {
        return {};
    }
    // The speech is not essential: a failure is ignored.
    const Error error = launch({.path = *program,
                                .identifier = "spd-say",
                                .command = {*program, "--", text},
                                .workingFolder = {},
                                .busName = {}},
                               *session, *context.processes);
    static_cast<void>(error);
    return {};
}

ScriptValue informationFor(WorldContext& context, const Command& command) {
    const ScriptValue& item = directOf(command);
    const std::string path = std::string(withoutTrailingSlashes(
        item.is(ScriptValue::Kind::file) ? item.asFilePath() : posixPathOf(textFrom(item))));
    const auto facts = FileFacts::of(path);
    if (!facts) {
        failWithFile(error_number::kFileNotFound, path);
    }
    return fileInformation(context, *facts);
}

ScriptValue openLocation(WorldContext& context, const Command& command) {
    const std::string text = textFrom(directOf(command));
    const auto url = URL::URLWithString(text);
    if (!url || url->scheme().empty()) {
        failToGet(fmt::format("URL \"{}\"", text));
    }
    openInSession(context, nullptr, {text});
    return {};
}

[[noreturn]] ScriptValue refuseInteraction(WorldContext& /*context*/, const Command& /*command*/) {
    fail(error_number::kNoUserInteraction, "No user interaction allowed.");
}

// The value of a variable of the environment that a shell command would see; without a name the
// names of all.
ScriptValue systemAttribute(Shell& shell, const Command& command) {
    const std::string wanted = command.hasDirect ? textFrom(command.direct) : std::string();
    std::vector<ScriptValue> names;
    for (const std::string& each : shell.environment()) {
        const std::size_t sign = each.find('=');
        if (command.hasDirect && std::string_view(each).substr(0, sign) == wanted) {
            return ScriptValue::text(validText(each.substr(sign + 1)));
        }
        names.push_back(ScriptValue::text(validText(each.substr(0, sign))));
    }
    return command.hasDirect ? ScriptValue::text("") : ScriptValue::list(std::move(names));
}

struct Addition {
    Term name;
    ScriptValue (*perform)(WorldContext&, const Command&);
};

constexpr std::array kAdditions = std::to_array<Addition>({
    {Term::delay, delay},
    {Term::log, log},
    {Term::beep, [](WorldContext&, const Command&) { return ScriptValue(); }},
    {Term::say, say},
    {Term::currentDate,
     [](WorldContext&, const Command&) {
         return ScriptValue::date(localSeconds(std::time(nullptr)));
     }},
    {Term::pathTo, pathTo},
    {Term::displayDialog, displayDialog},
    {Term::displayAlert, displayDialog},
    {Term::displayNotification, displayNotification},
    {Term::chooseFromList, chooseFromList},
    {Term::chooseFile, chooseFile},
    {Term::chooseFolder, chooseFile},
    {Term::systemInfo,
     [](WorldContext& context, const Command&) { return systemInformation(context); }},
    {Term::infoFor, informationFor},
    {Term::openLocation, openLocation},
    {Term::theClipboard, refuseInteraction},
    {Term::setVolume, refuseInteraction},
    {Term::timeToGMT,
     [](WorldContext&, const Command&) {
         const std::time_t now = std::time(nullptr);
         return ScriptValue::integer(std::llround(localSeconds(now) - static_cast<double>(now)));
     }},
});

} // namespace

ScriptValue performAddition(WorldContext& context, Shell& shell, const Command& command) {
    if (command.name == Term::doShellScript) {
        return shell.run(command);
    }
    if (command.name == Term::systemAttribute) {
        return systemAttribute(shell, command);
    }
    const auto found = std::ranges::find(kAdditions, command.name, &Addition::name);
    if (found == kAdditions.end()) {
        fail(error_number::kNotUnderstood,
             fmt::format("«script» doesn’t understand the “{}” message.", wordsOf(command.name)));
    }
    return found->perform(context, command);
}

} // namespace qv::applescript::world
