#include "platform/workspace/applications/ApplicationIndexes.h"

#include "platform/foundation/process/UserRecord.h"

#include <algorithm>
#include <optional>
#include <unistd.h>

namespace qv {

namespace {

std::vector<ApplicationFolders> foldersFor(uid_t user) {
    const std::optional<UserRecord> other = user == ::geteuid() ? std::nullopt : userRecord(user);
    return other ? applicationFoldersFor(*other) : ownApplicationFolders();
}

} // namespace

ApplicationIndex& ApplicationIndexes::indexFor(uid_t user) {
    const auto known =
        std::ranges::find(indexes_, user, &std::pair<uid_t, ApplicationIndex>::first);
    if (known != indexes_.end()) {
        indexes_.splice(indexes_.begin(), indexes_, known);
    } else {
        indexes_.emplace_front(user, ApplicationIndex(foldersFor(user)));
        if (indexes_.size() > kMost) {
            indexes_.pop_back();
        }
    }
    return indexes_.front().second;
}

} // namespace qv
