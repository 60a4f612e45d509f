#pragma once

#include "platform/applescript/values/OutsideWorld.h"
#include "platform/applescript/world/context/WorldContext.h"

namespace qv::applescript::world {

// Windows and messages in the session of the requester, shown by zenity(1) or kdialog(1), which run
// as its user. -1713 without a session with a screen, and without either program; -128 when the
// user cancels.

/// `display dialog` and `display alert`. A record: button returned, text returned, gave up.
[[nodiscard]] ScriptValue displayDialog(WorldContext& context, const Command& command);
/// A list of the chosen items, or false.
[[nodiscard]] ScriptValue chooseFromList(WorldContext& context, const Command& command);
/// `choose file` and `choose folder`. An alias, or a list of them.
[[nodiscard]] ScriptValue chooseFile(WorldContext& context, const Command& command);
/// Shows a notification by the session's bus; -1713 where nobody shows it.
[[nodiscard]] ScriptValue displayNotification(WorldContext& context, const Command& command);

} // namespace qv::applescript::world
