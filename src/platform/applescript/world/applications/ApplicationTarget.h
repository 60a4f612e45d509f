#pragma once

#include "platform/applescript/values/OutsideWorld.h"
#include "platform/applescript/world/context/WorldContext.h"
#include "platform/workspace/launch/ApplicationStart.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace qv::applescript::world {

/// An application that is installed here.
struct ResolvedApplication {
    std::string name; ///< as the script names it
    std::string path; ///< of its bundle, its desktop entry or its program
};

/// Finds an application by name, path or identifier; none if it is not installed.
[[nodiscard]] std::optional<ResolvedApplication> findApplication(WorldContext& context,
                                                                 const Specifier& application);
/// The same; -1728 if there is none.
[[nodiscard]] ResolvedApplication resolvedApplication(WorldContext& context,
                                                      const Specifier& application);
/// The way in which it is started, which says how its processes are known; -10810 and the like if
/// it cannot be.
[[nodiscard]] ApplicationStart startOf(WorldContext& context,
                                       const ResolvedApplication& application);
/// Starts it in the session of the requester.
void launchApplication(WorldContext& context, const ResolvedApplication& application);
/// Has an application, or the session's choice of one where it is null, open files or a URL.
void openInSession(WorldContext& context, const ResolvedApplication* application,
                   const std::vector<std::string>& targets);

/// The commands that every application understands: `activate`, `launch`, `run`, `reopen`, `open`,
/// `quit`, and the properties name, id, version, running and frontmost.
[[nodiscard]] ScriptValue sendToApplication(WorldContext& context, const Specifier& target,
                                            const Command& command);

} // namespace qv::applescript::world
