#include "platform/workspace/launch/CopiedWorkspace.h"

#include "platform/workspace/launch/LaunchError.h"

#include <utility>

namespace qv {

CopiedWorkspace::CopiedWorkspace(std::string root)
    : root_(std::move(root)), index_({sharedApplicationFolders(root_)}, "") {}

std::vector<InstalledApplication> CopiedWorkspace::applications() {
    std::vector<InstalledApplication> applications = index_.applications();
    for (InstalledApplication& application : applications) {
        application.path.erase(0, root_.size());
    }
    return applications;
}

Error CopiedWorkspace::launchApplicationAtURL(const std::optional<URL>& /*url*/,
                                              WorkspaceLaunchOptions /*options*/,
                                              const Value& /*configuration*/) {
    return launchError(launch_error::kUnknown, root_, "This is a copy of another machine's files.");
}

std::optional<std::string>
CopiedWorkspace::absolutePathForAppBundleWithIdentifier(std::string_view bundleIdentifier) {
    return withoutRoot(index_.pathForIdentifier(bundleIdentifier));
}

std::optional<std::string> CopiedWorkspace::fullPathForApplication(std::string_view appName) {
    return withoutRoot(index_.pathForName(appName));
}

ApplicationVersion CopiedWorkspace::versionOfApplicationAtPath(const std::string& path,
                                                               std::string_view key) {
    return versionOfApplication(root_ + path, key, root_);
}

std::optional<std::string>
CopiedWorkspace::withoutRoot(const std::optional<std::string>& path) const {
    return path ? std::optional(path->substr(root_.size())) : std::nullopt;
}

} // namespace qv
