#pragma once

#include "platform/foundation/values/Error.h"
#include "platform/foundation/values/URL.h"
#include "platform/foundation/values/Value.h"
#include "platform/workspace/applications/ApplicationVersion.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace qv {

/// The options of a launch; the numbers are the platform's.
enum WorkspaceLaunchOptions : std::uint32_t {
    kWorkspaceLaunchDefault = 0x10000, ///< asynchronously
};

/// The applications of a machine. An application is a bundle (a folder with an information list and
/// an executable), a desktop entry (`NAME.desktop`) or a plain executable file.
class WorkspaceService {
public:
    WorkspaceService() = default;
    WorkspaceService(const WorkspaceService&) = delete;
    WorkspaceService& operator=(const WorkspaceService&) = delete;
    WorkspaceService(WorkspaceService&&) = delete;
    WorkspaceService& operator=(WorkspaceService&&) = delete;
    virtual ~WorkspaceService() = default;

    /// Starts an application and does not wait for it. `configuration`: a dictionary; nothing in it
    /// is known as yet. Errors: NSCocoaErrorDomain 4 when there is nothing at the URL and 262 when
    /// it is not a file URL; NSOSStatusErrorDomain -10811 when that is not an application, -10827
    /// when it has no executable, -10810 when it could not be started, with the cause in the user
    /// information.
    virtual Error launchApplicationAtURL(const std::optional<URL>& url,
                                         WorkspaceLaunchOptions options,
                                         const Value& configuration) = 0;

    /// Looks up the session of whoever asked, for a launch that comes when he has gone.
    virtual void noteSession() = 0;

    /// The folder of a bundle or the file of a desktop entry, by its identifier in any case; none
    /// when there is no such application.
    virtual std::optional<std::string>
    absolutePathForAppBundleWithIdentifier(std::string_view bundleIdentifier) = 0;
    /// The same by the name that it has for people, or that of its file.
    virtual std::optional<std::string> fullPathForApplication(std::string_view appName) = 0;
    /// The value that the application at a path of the above states under a key of information
    /// dictionaries, "CFBundleVersion" or "CFBundleShortVersionString".
    virtual ApplicationVersion versionOfApplicationAtPath(const std::string& path,
                                                          std::string_view key) = 0;
};

} // namespace qv
