#pragma once

#include "platform/applescript/world/applications/RunningProcesses.h"
#include "platform/applescript/world/context/WorldContext.h"
#include "platform/foundation/os/Deadline.h"
#include "platform/workspace/launch/ApplicationStart.h"

#include <vector>

namespace qv::applescript::world {

/// The processes of an application: those that execute its program, those that execute a script
/// that is its program, and those of a unit that is named after it. Where the application is one
/// use of a program (an interpreter, or one with an argument that is not an option), the arguments
/// of the process have to begin like its own; where nothing tells its use from any other (`sh -l`,
/// `sleep 9`), only the unit counts. A user's session has processes of that user only: a user may
/// name any program in an application.
[[nodiscard]] std::vector<RunningProcess> processesOf(WorldContext& context,
                                                      const ApplicationStart& application);

/// Has an application end: it is asked to by its action `quit` if it is on the session's bus, and
/// its processes get SIGTERM if it is not there, or has not ended a few seconds later. Returns
/// whether it has ended; false once the deadline has passed.
[[nodiscard]] bool quitApplication(WorldContext& context, const ApplicationStart& application,
                                   const Deadline& deadline);

} // namespace qv::applescript::world
