#pragma once

#include "platform/applescript/world/context/WorldContext.h"

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

namespace qv::applescript::world {

// Calls to programs on the bus of the session, each made by a process that is its user, and given
// up in time. False if the bus cannot be reached, the name is not owned, or the call failed.

/// Has an application carry out one of its actions (org.freedesktop.Application), if it runs.
[[nodiscard]] bool activateAction(WorldContext& context, const std::string& busName,
                                  const std::string& action, std::chrono::milliseconds patience);
/// Has it open files; the bus starts it where it does not run.
[[nodiscard]] bool openWithApplication(WorldContext& context, const std::string& busName,
                                       const std::vector<std::string>& urls);
/// Shows a message (org.freedesktop.Notifications).
[[nodiscard]] bool showNotification(WorldContext& context, const std::string& title,
                                    const std::string& body);
/// Shows files in the file manager (org.freedesktop.FileManager1).
[[nodiscard]] bool showInFileManager(WorldContext& context, const std::vector<std::string>& urls);

} // namespace qv::applescript::world
