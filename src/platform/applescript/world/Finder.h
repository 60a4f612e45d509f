#pragma once

#include "platform/applescript/values/OutsideWorld.h"
#include "platform/applescript/world/context/WorldContext.h"
#include "platform/applescript/world/objects/FileObjects.h"

#include <string_view>

namespace qv::applescript::world {

/// Commands on objects, as Finder has them, and as System Events does for files: `get`, `exists`,
/// `count`, `delete` (into the trash), `move`, `duplicate`, `make`, `open`, `reveal`, `empty
/// trash`.
[[nodiscard]] ScriptValue sendToObjects(WorldContext& context, FileObjects& model,
                                        const Specifier& target, const Command& command);
/// `set PROPERTY of OBJECT`: the name of an item renames it.
void setOfObjects(WorldContext& context, FileObjects& model, const Specifier& object,
                  const ScriptValue& value);

/// The direct object, else the one that is told.
[[nodiscard]] ScriptValue objectIn(const Specifier& target, const Command& command);
/// Whether all objects of a value are there.
[[nodiscard]] bool doExist(FileObjects& model, const ScriptValue& value);

} // namespace qv::applescript::world
