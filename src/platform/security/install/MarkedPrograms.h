#pragma once

#include "platform/foundation/values/Error.h"

#include <string>
#include <sys/types.h>
#include <utility>
#include <vector>

namespace qv {

struct MarkedPrograms {
    std::vector<std::string> paths; ///< sorted
    /// The folders that could not be looked into.
    std::vector<std::pair<std::string, Error>> failures;
};

/// The files below a folder, on its own file system, that are set-group-id to the client group.
/// Reads nothing of them. A folder that is not there holds none.
[[nodiscard]] MarkedPrograms findMarkedPrograms(const std::string& folder, gid_t clientGroup);

} // namespace qv
