#pragma once

#include "platform/foundation/process/worker/UserProcesses.h"
#include "platform/workspace/applications/ApplicationIndex.h"
#include "platform/workspace/applications/ApplicationVersion.h"

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>

namespace qv {

/// Finds applications on behalf of users. An index keeps the applications installed for all, and
/// another those that this process's own user sees: to read the folders again takes a hundred times
/// as long as to see that they have not changed. Folders in another user's home are read each time,
/// by a process that is that user: he may have anything there. Not for several threads at once.
class ApplicationIndexes {
public:
    [[nodiscard]] std::optional<std::string>
    pathForIdentifier(uid_t user, std::string_view identifier, UserProcesses& processes);
    [[nodiscard]] std::optional<std::string> pathForName(uid_t user, std::string_view name,
                                                         UserProcesses& processes);
    /// The version as versionOfApplication gives it, for a path from these look-ups. An application
    /// in a user's home is read by a process of the user; no version if that does not answer.
    [[nodiscard]] static ApplicationVersion version(uid_t user, const std::string& path,
                                                    std::string_view key, UserProcesses& processes);

private:
    using Question = std::function<EntryTable::Answer(ApplicationIndex&)>;
    [[nodiscard]] std::optional<std::string> ask(uid_t user, const Question& question,
                                                 UserProcesses& processes);

    std::optional<ApplicationIndex> own_;
    std::optional<ApplicationIndex> shared_;
};

} // namespace qv
