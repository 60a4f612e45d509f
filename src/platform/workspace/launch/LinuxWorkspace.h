#pragma once

#include "platform/foundation/os/ProcessIdentity.h"
#include "platform/workspace/launch/WorkspaceMemory.h"
#include "platform/workspace/launch/WorkspaceService.h"

#include <memory>

namespace qv {

/// The applications of this machine: bundles in the folders of applications, and desktop entries
/// (freedesktop.org), those that Flatpak and Snap export included.
///
/// A launched application runs as the user whose session asked. It is handed to the session's bus
/// or to a service manager (systemd, the user's or the machine's) where there is one, so that
/// nothing of this process, its sandbox and its control group is its, and it does not end with it;
/// else this process starts it, in a session of its own.
class LinuxWorkspace final : public WorkspaceService {
public:
    /// `requester`: the process that asks, with its credentials. `memory` goes from one such object
    /// to the next. `runFolder`: the folder of the sockets of the machine's managers.
    explicit LinuxWorkspace(ProcessIdentity::Shared requester, WorkspaceMemory memory = {},
                            const std::string& runFolder = "/run");
    ~LinuxWorkspace() override;
    LinuxWorkspace(const LinuxWorkspace&) = delete;
    LinuxWorkspace& operator=(const LinuxWorkspace&) = delete;
    LinuxWorkspace(LinuxWorkspace&&) = delete;
    LinuxWorkspace& operator=(LinuxWorkspace&&) = delete;

    Error launchApplicationAtURL(const std::optional<URL>& url, WorkspaceLaunchOptions options,
                                 const Value& configuration) override;
    void noteSession() override;
    std::optional<std::string>
    absolutePathForAppBundleWithIdentifier(std::string_view bundleIdentifier) override;
    std::optional<std::string> fullPathForApplication(std::string_view appName) override;
    ApplicationVersion versionOfApplicationAtPath(const std::string& path,
                                                  std::string_view key) override;

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace qv
