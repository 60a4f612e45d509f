#pragma once

#include "platform/applescript/values/OutsideWorld.h"
#include "platform/applescript/world/context/WorldContext.h"

namespace qv::applescript::world {

/// `path to`: a folder that has a name, an application, or for `me` the program that this process
/// executes. An alias, or a text where that is asked for.
[[nodiscard]] ScriptValue pathTo(WorldContext& context, const Command& command);

} // namespace qv::applescript::world
