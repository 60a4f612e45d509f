#include "platform/workspace/launch/LinuxWorkspace.h"

#include "platform/foundation/files/item/FileSystemPath.h"
#include "platform/workspace/applications/ApplicationIndexes.h"
#include "platform/workspace/launch/ApplicationResolver.h"
#include "platform/workspace/launch/LaunchError.h"
#include "platform/workspace/launch/LaunchSession.h"
#include "platform/workspace/launch/Launcher.h"

#include <utility>

namespace qv {

namespace {

using Session = tl::expected<LaunchSession, std::string>; // or the reason why there is none

} // namespace

struct LinuxWorkspace::State {
    ProcessIdentity::Shared requester;
    WorkspaceMemory memory;
    std::string runFolder;
    Session session = tl::unexpected(std::string("it was not looked for"));
    bool isSessionNoted = false;
};

LinuxWorkspace::LinuxWorkspace(ProcessIdentity::Shared requester, WorkspaceMemory memory,
                               const std::string& runFolder)
    : state_(std::make_unique<State>()) {
    state_->requester = std::move(requester);
    state_->memory = std::move(memory);
    if (!state_->memory.applications) {
        state_->memory.applications = std::make_shared<ApplicationIndexes>();
    }
    if (!state_->memory.processes) {
        state_->memory.processes = std::make_shared<UserProcesses>();
    }
    state_->runFolder = runFolder;
}

LinuxWorkspace::~LinuxWorkspace() = default;

void LinuxWorkspace::noteSession() {
    if (!std::exchange(state_->isSessionNoted, true)) {
        state_->session =
            findLaunchSession(state_->requester, *state_->memory.processes, state_->runFolder);
    }
}

Error LinuxWorkspace::launchApplicationAtURL(const std::optional<URL>& url,
                                             WorkspaceLaunchOptions /*options*/,
                                             const Value& /*configuration*/) {
    const tl::expected<std::string, Error> path = fileSystemPath(url);
    if (!path) {
        return path.error();
    }
    noteSession();
    const Session& session = state_->session;
    if (!session) {
        return launchError(launch_error::kUnknown, *path, session.error());
    }
    const auto application = resolveApplication(*path, session->user, *state_->memory.processes);
    return application ? launch(*application, *session, *state_->memory.processes)
                       : application.error();
}

std::optional<std::string>
LinuxWorkspace::absolutePathForAppBundleWithIdentifier(std::string_view bundleIdentifier) {
    const auto& [applications, processes] = state_->memory;
    return applications->pathForIdentifier(state_->requester->user(), bundleIdentifier, *processes);
}

std::optional<std::string> LinuxWorkspace::fullPathForApplication(std::string_view appName) {
    const auto& [applications, processes] = state_->memory;
    return applications->pathForName(state_->requester->user(), appName, *processes);
}

ApplicationVersion LinuxWorkspace::versionOfApplicationAtPath(const std::string& path,
                                                              std::string_view key) {
    return ApplicationIndexes::version(state_->requester->user(), path, key,
                                       *state_->memory.processes);
}

} // namespace qv
