#include "platform/workspace/LinuxWorkspace.h"

#include "platform/workspace/applications/ApplicationIndexes.h"
#include "platform/workspace/launch/ApplicationResolver.h"
#include "platform/workspace/launch/LaunchError.h"
#include "platform/workspace/launch/LaunchSession.h"
#include "platform/workspace/launch/Launcher.h"

#include <utility>

namespace qv {

namespace {

using Session = tl::expected<LaunchSession, std::string>; // or why there is none

} // namespace

struct LinuxWorkspace::State {
    Requester requester;
    std::string runFolder;
    Session session = tl::unexpected(std::string("it was not looked for"));
    bool isSessionNoted = false;
    std::shared_ptr<ApplicationIndexes> applications;

    ApplicationIndex& index() {
        if (!applications) {
            applications = std::make_shared<ApplicationIndexes>();
        }
        return applications->indexFor(requester.user);
    }
};

LinuxWorkspace::LinuxWorkspace(const Requester& requester,
                               std::shared_ptr<ApplicationIndexes> applications,
                               const std::string& runFolder)
    : state_(std::make_unique<State>()) {
    state_->requester = requester;
    state_->applications = std::move(applications);
    state_->runFolder = runFolder;
}

LinuxWorkspace::~LinuxWorkspace() = default;

void LinuxWorkspace::noteSession() {
    if (!std::exchange(state_->isSessionNoted, true)) {
        state_->session = findLaunchSession(state_->requester, state_->runFolder);
    }
}

Error LinuxWorkspace::launchApplicationAtURL(const std::optional<URL>& url,
                                             WorkspaceLaunchOptions /*options*/,
                                             const Value& /*configuration*/) {
    const auto application = resolveApplication(url);
    if (!application) {
        return application.error();
    }
    noteSession();
    const Session& session = state_->session;
    return session ? launch(*application, *session)
                   : launchError(launch_error::kUnknown, application->path, session.error());
}

std::optional<std::string>
LinuxWorkspace::absolutePathForAppBundleWithIdentifier(std::string_view bundleIdentifier) {
    return state_->index().pathForIdentifier(bundleIdentifier);
}

std::optional<std::string> LinuxWorkspace::fullPathForApplication(std::string_view appName) {
    return state_->index().pathForName(appName);
}

} // namespace qv
