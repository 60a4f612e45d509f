#pragma once

#include "platform/workspace/launch/ApplicationStart.h"
#include "platform/workspace/launch/LaunchSession.h"

#include <chrono>

namespace qv {

/// Starts an application in a session and does not wait for it: by the session's bus where it can
/// be, else by the service manager, else itself. However it is started, it leads a session of its
/// own, has nothing of this process, and does not end with it. Whoever does not answer is given up
/// so that all is over within `patience`, and the second or two that it takes to end what is late.
[[nodiscard]] Error launch(const ApplicationStart& application, const LaunchSession& session,
                           std::chrono::milliseconds patience = std::chrono::seconds(28));

} // namespace qv
