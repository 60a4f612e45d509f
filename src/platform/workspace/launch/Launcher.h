#pragma once

#include "platform/workspace/applications/Patience.h"
#include "platform/workspace/launch/ApplicationStart.h"
#include "platform/workspace/launch/LaunchSession.h"

namespace qv {

/// Starts an application in a session and does not wait for it: by the session's bus where it can
/// be, else by the service manager, else itself. However it is started, it leads a session of its
/// own, has nothing of this process, and does not end with it. A bus or manager that does not
/// answer is given up in time, and given less time by the next launch for his user, until one
/// succeeds.
[[nodiscard]] Error launch(const ApplicationStart& application, const LaunchSession& session,
                           UserProcesses& processes, const LaunchPatience& patience = {});

} // namespace qv
