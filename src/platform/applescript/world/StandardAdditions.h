#pragma once

#include "platform/applescript/values/OutsideWorld.h"
#include "platform/applescript/world/Shell.h"
#include "platform/applescript/world/context/WorldContext.h"

namespace qv::applescript::world {

/// Carries out a command that is known everywhere; -1708 for one that is not here.
[[nodiscard]] ScriptValue performAddition(WorldContext& context, Shell& shell,
                                          const Command& command);

} // namespace qv::applescript::world
