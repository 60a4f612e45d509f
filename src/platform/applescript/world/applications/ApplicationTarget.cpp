#include "platform/applescript/world/applications/ApplicationTarget.h"

#include "platform/applescript/world/applications/ApplicationProcesses.h"
#include "platform/applescript/world/applications/BusCalls.h"
#include "platform/applescript/world/context/FilePaths.h"
#include "platform/applescript/world/context/Parameters.h"
#include "platform/applescript/world/objects/FileAnswers.h"
#include "platform/applescript/world/objects/Objects.h"
#include "platform/foundation/values/URL.h"
#include "platform/workspace/applications/DesktopEntry.h"
#include "platform/workspace/applications/ExecLine.h"
#include "platform/workspace/launch/ApplicationResolver.h"
#include "platform/workspace/launch/LaunchError.h"
#include "platform/workspace/launch/Launcher.h"

#include <fmt/core.h>

#include <algorithm>
#include <array>

namespace qv::applescript::world {

namespace {

using Kind = ScriptValue::Kind;

std::string shownApplication(const Specifier& application) {
    return fmt::format("application {}\"{}\"", application.byIdentifier ? "id " : "",
                       application.application);
}

[[noreturn]] void failToLaunch(const ResolvedApplication& application, const Error& error) {
    // A file may be missing, but the application is there.
    if (error.domain() == error_domain::kOSStatus) {
        fail(error.code(), error.localizedDescription(), application.name);
    }
    failWithFile(error, application.path, application.name);
}

bool isRunning(WorldContext& context, const ResolvedApplication& application) {
    return !processesOf(context, startOf(context, application)).empty();
}

ScriptValue nameOfApplication(const ResolvedApplication& application) {
    std::string_view name = lastName(application.path);
    if (name.ends_with(".desktop")) {
        const auto entry = DesktopEntry::contentsOfFile(application.path);
        return ScriptValue::text(entry && !entry->name.empty() ? entry->name : application.name);
    }
    constexpr std::string_view kBundle = ".app";
    if (name.ends_with(kBundle)) {
        name.remove_suffix(kBundle.size());
    }
    return ScriptValue::text(validText(std::string(name)));
}

std::optional<ScriptValue> propertyOfApplication(WorldContext& context,
                                                 const ResolvedApplication& application,
                                                 Term property) {
    switch (property) {
    case Term::name:
        return nameOfApplication(application);
    case Term::id:
    case Term::bundleIdentifier:
        return ScriptValue::text(validText(startOf(context, application).identifier));
    case Term::version:
    case Term::shortVersion: {
        const auto facts = FileFacts::of(application.path);
        return facts ? filePropertyOf(context, *facts, Term::version) : std::nullopt;
    }
    case Term::running:
        return ScriptValue::boolean(isRunning(context, application));
    case Term::frontmost:
        return ScriptValue::boolean(false);
    case Term::class_:
        return ScriptValue::type(Term::application);
    case Term::posixPath:
        return ScriptValue::text(validText(application.path));
    default:
        return std::nullopt;
    }
}

// The object that a command is about: the direct one where that is an application's.
const Specifier& objectOf(const Specifier& target, const Command& command) {
    return command.hasDirect && command.direct.is(Kind::specifier) ? command.direct.asSpecifier()
                                                                   : target;
}

std::vector<std::string> pathsToOpen(const ScriptValue& value, std::string_view application) {
    std::vector<std::string> paths;
    for (const ScriptValue& each : listFrom(value)) {
        const bool isFile = each.is(Kind::file) || each.is(Kind::text);
        std::string path = !isFile               ? std::string()
                           : each.is(Kind::file) ? each.asFilePath()
                                                 : posixPathOf(each.asText());
        if (!isFile) {
            failToGet(shown(each), application);
        }
        if (!FileFacts::of(std::string(withoutTrailingSlashes(path)))) {
            failWithFile(error_number::kFileNotFound, path, application);
        }
        paths.push_back(std::move(path));
    }
    return paths;
}

ScriptValue get(WorldContext& context, const Specifier& object) {
    if (object.steps.empty()) {
        return ScriptValue::specifier(object);
    }
    const Term property = object.steps.front().term;
    const bool isProperty =
        object.steps.front().form == Specifier::Form::property && object.steps.size() == 1;
    if (isProperty && property == Term::running && !findApplication(context, object)) {
        return ScriptValue::boolean(false);
    }
    const ResolvedApplication application = resolvedApplication(context, object);
    const std::optional<ScriptValue> value =
        isProperty ? propertyOfApplication(context, application, property) : std::nullopt;
    if (!value) {
        Specifier inside = object;
        inside.application.clear();
        failToGet(described(inside), application.name);
    }
    return *value;
}

ScriptValue quit(WorldContext& context, const Specifier& object, const Command& command) {
    const ResolvedApplication application = resolvedApplication(context, object);
    if (!quitApplication(context, startOf(context, application),
                         deadlineOf(context, command.timeout))) {
        fail(error_number::kTimedOut, "AppleEvent timed out.", application.name);
    }
    return {};
}

ScriptValue start(WorldContext& context, const Specifier& object, const Command& /*command*/) {
    const ResolvedApplication application = resolvedApplication(context, object);
    const ApplicationStart known = startOf(context, application);
    // A second start would open a second one; on the bus it comes to the front.
    if (!known.busName.empty() || processesOf(context, known).empty()) {
        launchApplication(context, application);
    }
    return {};
}

ScriptValue launchQuietly(WorldContext& context, const Specifier& object,
                          const Command& /*command*/) {
    const ResolvedApplication application = resolvedApplication(context, object);
    if (!isRunning(context, application)) {
        launchApplication(context, application);
    }
    return {};
}

ScriptValue open(WorldContext& context, const Specifier& object, const Command& command) {
    const ResolvedApplication application = resolvedApplication(context, object);
    openInSession(context, &application, pathsToOpen(directOf(command), application.name));
    return {};
}

using Handler = ScriptValue (*)(WorldContext&, const Specifier&, const Command&);

struct ApplicationCommand {
    Term name;
    Handler carryOut;
};

constexpr std::array kApplicationCommands = std::to_array<ApplicationCommand>({
    {Term::activate, start},
    {Term::reopen, start},
    {Term::launch, launchQuietly},
    {Term::run, launchQuietly},
    {Term::open, open},
    {Term::quit, quit},
    {Term::isRunning,
     [](WorldContext& context, const Specifier& object, const Command& /*command*/) {
         const auto application = findApplication(context, object);
         return ScriptValue::boolean(application && isRunning(context, *application));
     }},
    {Term::exists,
     [](WorldContext& context, const Specifier& object, const Command& /*command*/) {
         return ScriptValue::boolean(object.steps.empty() &&
                                     findApplication(context, object).has_value());
     }},
    {Term::get, [](WorldContext& context, const Specifier& object,
                   const Command& /*command*/) { return get(context, object); }},
});

} // namespace

std::optional<ResolvedApplication> findApplication(WorldContext& context,
                                                   const Specifier& application) {
    const std::string& name = application.application;
    std::optional<std::string> path;
    if (name.find('\0') != std::string::npos) {
        return std::nullopt;
    }
    if (application.byIdentifier) {
        path = context.workspace->absolutePathForAppBundleWithIdentifier(name);
    } else if (name.starts_with('/') || name.find(':') != std::string::npos) {
        path = withoutTrailingSlashes(posixPathOf(name));
        path = FileFacts::of(*path) ? path : std::nullopt;
    } else {
        path = context.workspace->fullPathForApplication(name);
        path = path ? path : context.workspace->absolutePathForAppBundleWithIdentifier(name);
    }
    return path ? std::optional(ResolvedApplication{
                      std::string(name.starts_with('/') ? lastName(name) : name), *path})
                : std::nullopt;
}

ResolvedApplication resolvedApplication(WorldContext& context, const Specifier& application) {
    std::optional<ResolvedApplication> found = findApplication(context, application);
    if (!found) {
        failToGet(shownApplication(application));
    }
    return std::move(*found);
}

ApplicationStart startOf(WorldContext& context, const ResolvedApplication& application) {
    auto start = resolveApplication(application.path, context.user(), *context.processes);
    if (!start) {
        failToLaunch(application, start.error());
    }
    return std::move(*start);
}

void launchApplication(WorldContext& context, const ResolvedApplication& application) {
    if (const Error error = context.workspace->launchApplicationAtURL(
            URL::fileURLWithPath(application.path), kWorkspaceLaunchDefault,
            Value::dictionary({}))) {
        failToLaunch(application, error);
    }
}

void openInSession(WorldContext& context, const ResolvedApplication* application,
                   const std::vector<std::string>& targets) {
    const std::string name = application != nullptr ? application->name : std::string();
    const LaunchSession* const session =
        application != nullptr ? context.session() : &context.screenSession();
    if (session == nullptr) {
        fail(launch_error::kUnknown, "There is no session to open it in.", name);
    }
    ApplicationStart start;
    if (application != nullptr) {
        start = startOf(context, *application);
    } else if (const std::optional<std::string> program = findProgram("xdg-open")) {
        start = {.path = *program,
                 .identifier = "xdg-open",
                 .command = {*program},
                 .workingFolder = {},
                 .busName = {}};
    } else {
        fail(error_number::kApplicationNotFound, "No application knows how to open it.");
    }
    if (start.command.empty()) {
        std::vector<std::string> urls;
        std::ranges::transform(targets, std::back_inserter(urls), [](const std::string& each) {
            return URL::fileURLWithPath(each).absoluteString();
        });
        if (!openWithApplication(context, start.busName, urls)) {
            fail(launch_error::kUnknown, "The application did not answer.", name);
        }
        return;
    }
    start.busName.clear(); // by the bus it would not get the files
    start.command.insert(start.command.end(), targets.begin(), targets.end());
    if (const Error error = launch(start, *session, *context.processes)) {
        failWithFile(error, start.path, name);
    }
}

ScriptValue sendToApplication(WorldContext& context, const Specifier& target,
                              const Command& command) {
    const Specifier& object = objectOf(target, command);
    const auto found =
        std::ranges::find(kApplicationCommands, command.name, &ApplicationCommand::name);
    if (found == kApplicationCommands.end()) {
        const ResolvedApplication application = resolvedApplication(context, target);
        failToUnderstand(wordsOf(command.name), application.name);
    }
    return found->carryOut(context, object, command);
}

} // namespace qv::applescript::world
