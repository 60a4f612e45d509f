#pragma once

#include <memory>

namespace qv {

class ApplicationIndexes;
class UserProcesses;

/// The state that outlives a LinuxWorkspace, which is made for one requester. Each part is made
/// when it is missing and needed. For one thread.
struct WorkspaceMemory {
    std::shared_ptr<ApplicationIndexes> applications; ///< the applications that are installed
    std::shared_ptr<UserProcesses> processes;         ///< they know the users who were late
};

} // namespace qv
