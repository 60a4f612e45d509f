#pragma once

#include <memory>

namespace qv {

class ApplicationIndexes;
class UserProcesses;

/// What outlives a LinuxWorkspace, which is made for one who asks. Either is made when it is
/// missing and needed. For one thread.
struct WorkspaceMemory {
    std::shared_ptr<ApplicationIndexes> applications; ///< what is installed
    std::shared_ptr<UserProcesses> processes;         ///< and who has kept it waiting
};

} // namespace qv
