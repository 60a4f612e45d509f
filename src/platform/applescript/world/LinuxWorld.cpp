#include "platform/applescript/world/LinuxWorld.h"

#include "platform/applescript/world/Finder.h"
#include "platform/applescript/world/Shell.h"
#include "platform/applescript/world/StandardAdditions.h"
#include "platform/applescript/world/SystemEvents.h"
#include "platform/applescript/world/applications/ApplicationTarget.h"
#include "platform/applescript/world/context/FilePaths.h"
#include "platform/applescript/world/context/Parameters.h"
#include "platform/applescript/world/context/WorldContext.h"
#include "platform/applescript/world/objects/FileAnswers.h"
#include "platform/applescript/world/objects/FileObjects.h"
#include "platform/foundation/values/URL.h"
#include "platform/workspace/launch/LinuxWorkspace.h"

#include <ctime>

namespace qv::applescript {

using namespace world; // NOLINT(google-build-using-namespace): the parts of this room

namespace {

constexpr std::string_view kFinder = "Finder";

bool isApplication(const Specifier& target, std::string_view name, std::string_view identifier) {
    return isSameText(target.application, target.byIdentifier ? identifier : name);
}
bool isFinder(const Specifier& target) {
    return isApplication(target, kFinder, "com.apple.finder");
}
bool isSystemEvents(const Specifier& target) {
    return isApplication(target, "System Events", "com.apple.systemevents");
}

// Whether an object is a file that a script holds, or something of it.
bool beginsWithFile(const Specifier& object) {
    return !object.steps.empty() && object.steps.front().key.is(ScriptValue::Kind::file);
}

// The application that a command is for: the one of its object, where that has one.
const Specifier& addresseeOf(const Specifier& target, const Command& command) {
    const bool hasOwn = command.hasDirect && command.direct.is(ScriptValue::Kind::specifier) &&
                        !command.direct.asSpecifier().application.empty();
    return hasOwn ? command.direct.asSpecifier() : target;
}

} // namespace

struct LinuxWorld::State {
    explicit State(const Deadline& end) : shell(end) { context.end = end; }

    WorldContext context;
    Shell shell;

    FileObjects finder() {
        return {context, {.application = std::string(kFinder), .relativeTo = Term::desktop}};
    }
    FileObjects plainFiles() {
        return {context, {.application = {}, .showsHidden = true, .relativeTo = Term::startupDisk}};
    }
};

LinuxWorld::LinuxWorld(ProcessIdentity::Shared requester, Services services, const Deadline& end,
                       std::string runFolder)
    : state_(std::make_unique<State>(end)) {
    WorldContext& context = state_->context;
    context.requester = std::move(requester);
    context.workspace = std::move(services.workspace);
    context.trash = std::move(services.trash);
    context.processes = std::move(services.processes);
    context.runFolder = std::move(runFolder);
    if (!context.processes) {
        context.processes = std::make_shared<UserProcesses>();
    }
    if (!context.workspace) {
        context.workspace = std::make_shared<LinuxWorkspace>(
            context.requester, WorkspaceMemory{.applications = {}, .processes = context.processes},
            context.runFolder);
    }
    if (!context.trash) {
        context.trash = std::make_shared<FreedesktopTrash>();
    }
}

LinuxWorld::~LinuxWorld() = default;

ScriptValue LinuxWorld::perform(const Command& command) {
    return performAddition(state_->context, state_->shell, command);
}

ScriptValue LinuxWorld::send(const Specifier& target, const Command& command) {
    const Specifier& addressee = addresseeOf(target, command);
    if (isFinder(addressee)) {
        FileObjects model = state_->finder();
        return sendToObjects(state_->context, model, target, command);
    }
    if (isSystemEvents(addressee)) {
        return sendToSystemEvents(state_->context, target, command);
    }
    const bool isOfFile =
        beginsWithFile(command.hasDirect && command.direct.is(ScriptValue::Kind::specifier)
                           ? command.direct.asSpecifier()
                           : target);
    if (addressee.application.empty() || (isOfFile && command.name != Term::open)) {
        FileObjects model = state_->plainFiles();
        return sendToObjects(state_->context, model, target, command);
    }
    return sendToApplication(state_->context, addressee, command);
}

void LinuxWorld::set(const Specifier& object, const ScriptValue& value) {
    FileObjects finder = state_->finder();
    FileObjects plain = state_->plainFiles();
    SystemEventsObjects systemEvents(state_->context);
    FileObjects& model = isFinder(object) ? finder : isSystemEvents(object) ? systemEvents : plain;
    if (&model == &plain && !object.application.empty() && !beginsWithFile(object)) {
        const ResolvedApplication application = resolvedApplication(state_->context, object);
        Specifier inside = object;
        inside.application.clear();
        fail(error_number::kCannotSet,
             "Can’t set " + described(inside) + " to " + shown(value) + ".", application.name);
    }
    setOfObjects(state_->context, model, object, value);
}

void LinuxWorld::refuse(const Specifier& target, std::string_view words) {
    const bool isOwn = target.application.empty() || isFinder(target) || isSystemEvents(target);
    failToUnderstand(words, isOwn ? target.application
                                  : resolvedApplication(state_->context, target).name);
}

std::string LinuxWorld::colonPath(std::string_view posixPath) { return colonPathOf(posixPath); }

std::string LinuxWorld::posixPath(std::string_view colonPath) { return posixPathOf(colonPath); }

bool LinuxWorld::fileExists(const std::string& posixPath) {
    const auto facts = FileFacts::of(std::string(withoutTrailingSlashes(posixPath)));
    return facts && (!posixPath.ends_with('/') || (facts->isFolder && !facts->isLink));
}

double LinuxWorld::now() { return localSeconds(std::time(nullptr)); }

} // namespace qv::applescript
