#pragma once

#include "platform/foundation/process/state/UserRecord.h"
#include "platform/foundation/values/Error.h"
#include "platform/preferences/PreferencesService.h"

#include <tl/expected.hpp>

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace qv {

/// The machine as preferences see it; the members' own values are the machine's.
struct PreferenceEnvironment {
    /// The folder with the values of any user. Made when it is missing, but not what it is in.
    std::string anyUserFolder = "/usr/local/etc";
    std::function<std::optional<UserRecord>(const std::string&)> userNamed =
        [](const std::string& name) { return userRecord(name); };
    std::function<std::optional<UserRecord>(uid_t)> userNumbered = [](uid_t user) {
        return userRecord(user);
    };
    bool heedsConfigHome = true; ///< XDG_CONFIG_HOME says where this process's own values are
    /// The time for other writers of the same folder to finish.
    std::chrono::milliseconds lockPatience{5000};
    /// The time for the process that works as another user, its wait for other writers included.
    std::chrono::milliseconds userPatience{10000};
};

namespace preferences {

/// The file of a domain. Layout: that of Swift's Foundation on Linux.
struct DomainPlace {
    std::string base;                 ///< a folder, or a link to one
    std::optional<mode_t> baseMode;   ///< the base is made when it is missing; with none it is not
    std::vector<std::string> folders; ///< from the base on, real ones; made when they are missing
    mode_t folderMode = 0700;
    std::string fileName;
    mode_t fileMode = 0600; ///< of a new file
    /// The user who has to go there, since only his own rights may count; none: this process
    /// itself.
    std::optional<UserRecord> otherUser;

    /// The base and so many of the folders.
    [[nodiscard]] std::string folderPath(std::size_t count) const;
    [[nodiscard]] std::string path() const;
};

/// Errors: EINVAL, ENAMETOOLONG for designations that are missing or that no file can have; ENOENT
/// for a user that does not exist.
[[nodiscard]] tl::expected<DomainPlace, Error> placeOf(const PreferencesDomain& domain,
                                                       const PreferenceEnvironment& environment);

} // namespace preferences

} // namespace qv
