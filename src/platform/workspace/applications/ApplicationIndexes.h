#pragma once

#include "platform/workspace/applications/ApplicationIndex.h"

#include <list>
#include <sys/types.h>
#include <utility>

namespace qv {

/// The indexes of the users that were last asked for, a few: an index is worth keeping, since to
/// read the folders again takes a hundred times as long as to see that they have not changed. Not
/// for several threads at once.
class ApplicationIndexes {
public:
    static constexpr std::size_t kMost = 4;

    /// What this process searches on behalf of a user; its own where he is its user, or unknown.
    /// Valid until the next call.
    [[nodiscard]] ApplicationIndex& indexFor(uid_t user);

private:
    std::list<std::pair<uid_t, ApplicationIndex>> indexes_; // latest first
};

} // namespace qv
