#pragma once

#include "platform/applescript/values/Terms.h"
#include "platform/applescript/world/context/WorldContext.h"

#include <optional>
#include <string>

namespace qv::applescript::world {

/// The path of a folder that the platform knows by a name (`desktop`, `application support`): for
/// the user on whose behalf this acts, or, from the local or the system domain, for all. Folders of
/// a user follow user-dirs.dirs (xdg-user-dirs), else lie in the home by their English names. None
/// for a term that is not a folder, or of which the domain has none. `domain`: Term::none for the
/// usual one. No slash at its end; nothing need be there.
[[nodiscard]] std::optional<std::string> folderPath(WorldContext& context, Term folder,
                                                    Term domain = Term::none);

} // namespace qv::applescript::world
