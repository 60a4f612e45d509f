#pragma once

#include "platform/foundation/process/worker/UserProcesses.h"
#include "platform/workspace/launch/ApplicationStart.h"

#include <tl/expected.hpp>

#include <string>

namespace qv {

/// Finds out how the item at a path is started, with the errors of
/// WorkspaceService::launchApplicationAtURL. A process of the user who will run it looks at it: the
/// path may lead to a file system of that user.
[[nodiscard]] tl::expected<ApplicationStart, Error>
resolveApplication(const std::string& path, const UserRecord& user, UserProcesses& processes);

} // namespace qv
