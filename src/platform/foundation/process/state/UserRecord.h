#pragma once

#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace qv {

/// The entry of a user in the user database (passwd(5)).
struct UserRecord {
    uid_t user = 0;
    gid_t group = 0;
    std::string name;
    std::string home; ///< need not exist
    std::string shell;
};

/// Returns none for a user without an entry, and when the database cannot be read.
[[nodiscard]] std::optional<UserRecord> userRecord(uid_t user);
[[nodiscard]] std::optional<UserRecord> userRecord(const std::string& name);

/// The group of a name, and the name of a group (group(5)); none as above.
[[nodiscard]] std::optional<gid_t> groupNamed(const std::string& name);
[[nodiscard]] std::optional<std::string> groupName(gid_t group);

/// All the groups that a login of the user has, the main one included (group(5)).
[[nodiscard]] std::vector<gid_t> groupsOf(const UserRecord& user);

} // namespace qv
