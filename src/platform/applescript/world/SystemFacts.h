#pragma once

#include "platform/applescript/values/ScriptValue.h"
#include "platform/applescript/world/context/WorldContext.h"

namespace qv::applescript::world {

/// `system info`: a record of the machine and of the user on whose behalf this acts.
[[nodiscard]] ScriptValue systemInformation(WorldContext& context);

} // namespace qv::applescript::world
