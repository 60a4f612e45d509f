#pragma once

#include "platform/foundation/process/UserProcess.h"
#include "platform/workspace/launch/ApplicationStart.h"

#include <tl/expected.hpp>

#include <string>

namespace qv {

/// What is at a path, as WorkspaceService::launchApplicationAtURL takes and refuses it. Looks only,
/// as the user who will run it: there may be anything of his.
[[nodiscard]] tl::expected<ApplicationStart, Error>
resolveApplication(const std::string& path, const UserRecord& user, UserProcesses& processes);

} // namespace qv
