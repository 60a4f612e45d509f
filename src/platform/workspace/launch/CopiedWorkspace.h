#pragma once

#include "platform/workspace/applications/ApplicationIndex.h"
#include "platform/workspace/launch/WorkspaceService.h"

#include <string>
#include <vector>

namespace qv {

/// The applications of another machine, of whose files a folder holds a copy: those that are
/// installed there for everybody. Paths are those on that machine. The programs of desktop entries
/// need not be in the copy. Nothing can be launched.
class CopiedWorkspace final : public WorkspaceService {
public:
    /// `root` is an absolute path without a slash at its end.
    explicit CopiedWorkspace(std::string root);

    /// Lists them as ApplicationIndex does.
    [[nodiscard]] std::vector<InstalledApplication> applications();

    Error launchApplicationAtURL(const std::optional<URL>& url, WorkspaceLaunchOptions options,
                                 const Value& configuration) override;
    void noteSession() override {}
    std::optional<std::string>
    absolutePathForAppBundleWithIdentifier(std::string_view bundleIdentifier) override;
    std::optional<std::string> fullPathForApplication(std::string_view appName) override;
    ApplicationVersion versionOfApplicationAtPath(const std::string& path,
                                                  std::string_view key) override;

private:
    [[nodiscard]] std::optional<std::string>
    withoutRoot(const std::optional<std::string>& path) const;

    std::string root_;
    ApplicationIndex index_;
};

} // namespace qv
