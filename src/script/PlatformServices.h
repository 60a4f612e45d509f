#pragma once

#include <memory>

namespace qv {

class AccessibilityService;
class ApplicationIndexes;
class PreferencesService;
class TrashService;
class UserProcesses;
class WorkspaceService;

/// The services that a script's operations ask of the machine. One that is missing is made when an
/// operation needs it: that of this machine, on behalf of this process itself.
struct PlatformServices {
    std::shared_ptr<TrashService> trash;
    std::shared_ptr<WorkspaceService> workspace;
    std::shared_ptr<PreferencesService> preferences;
    std::shared_ptr<AccessibilityService> accessibility;
    std::shared_ptr<ApplicationIndexes> applications;  ///< of the workspace that is made
    std::shared_ptr<UserProcesses> launches = nullptr; ///< the same
    std::shared_ptr<UserProcesses> preferenceChanges =
        nullptr;                                           ///< of the preferences that are made
    std::shared_ptr<UserProcesses> appleScripts = nullptr; ///< the processes that run them

    /// Makes services that many scripts may share, whoever asks.
    [[nodiscard]] static PlatformServices shared();
};

} // namespace qv
