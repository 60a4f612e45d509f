#pragma once

#include "platform/applescript/world/context/WorldContext.h"

#include <string>
#include <vector>

namespace qv::applescript::world {

/// An application that starts when a user logs in: a desktop entry in the folder `autostart` of the
/// user on whose behalf this acts, or, where that is root, of all users (/etc/xdg/autostart).
struct LoginItem {
    std::string name;
    std::string path; ///< of the application; of its program in an entry that others made
    bool isHidden = false;
    std::string fileName; ///< in that folder
};

// The folder is looked at and changed by a process that is its user. Each throws a ScriptError.

[[nodiscard]] std::vector<LoginItem> loginItems(WorldContext& context);
/// Writes the entry, over one of the same name.
void makeLoginItem(WorldContext& context, const LoginItem& item);
void removeLoginItem(WorldContext& context, const std::string& fileName);

} // namespace qv::applescript::world
