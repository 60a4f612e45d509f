#pragma once

#include "platform/foundation/os/Deadline.h"
#include "platform/foundation/os/ProcessIdentity.h"
#include "platform/foundation/process/worker/UserProcesses.h"
#include "platform/workspace/launch/LaunchSession.h"
#include "platform/workspace/launch/WorkspaceService.h"
#include "platform/workspace/trash/TrashService.h"

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace qv::applescript::world {

/// The parts of a LinuxWorld share this: the one on whose behalf they act, and the services.
struct WorldContext {
    ProcessIdentity::Shared requester;
    std::shared_ptr<WorkspaceService> workspace;
    std::shared_ptr<TrashService> trash;
    std::shared_ptr<UserProcesses> processes;
    std::string runFolder;
    Deadline end; ///< of the script

    /// The session of the requester, looked for once; null where there is none.
    [[nodiscard]] const LaunchSession* session();
    /// The session if it has a screen, else error -1713.
    [[nodiscard]] const LaunchSession& screenSession();
    /// The user on whose behalf it acts: the user of the session, else the effective one.
    [[nodiscard]] const UserRecord& user();

    /// Has work done by a process that is that user. An error of the work, or of having it done, is
    /// the error of the result.
    WorkResult performAs(const UserRecord& user, const std::function<WorkResult()>& run,
                         std::chrono::milliseconds patience);

    // The functions above remember their answers here.
    std::optional<LaunchSession> knownSession = {};
    std::optional<UserRecord> knownUser = {};
    bool isSessionLookedFor = false;
};

/// The time that a command may take: its timeout, but not beyond the script's end.
[[nodiscard]] Deadline deadlineOf(const WorldContext& context, std::chrono::milliseconds timeout);

/// The pairs of a text of lines KEY=VALUE or KEY="VALUE", as in os-release(5) and user-dirs.dirs;
/// other lines do not count.
[[nodiscard]] std::vector<std::pair<std::string, std::string>> assignmentsIn(std::string_view text);

} // namespace qv::applescript::world
