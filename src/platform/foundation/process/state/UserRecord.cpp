#include "platform/foundation/process/state/UserRecord.h"

#include <cerrno>
#include <grp.h>
#include <pwd.h>
#include <utility>

namespace qv {

namespace {

// The result of `use` for the entry that `look` finds; the entry's texts live no longer than that.
template <typename Entry, typename Look, typename Use>
auto entryOf(const Look& look, const Use& use)
    -> std::optional<decltype(use(std::declval<const Entry&>()))> {
    Entry entry{};
    Entry* found = nullptr;
    std::vector<char> buffer(1024);
    int status = ERANGE;
    while ((status = look(&entry, buffer.data(), buffer.size(), &found)) == ERANGE) {
        buffer.resize(buffer.size() * 2);
    }
    if (status != 0 || found == nullptr) {
        return std::nullopt;
    }
    return use(entry);
}

template <typename Look> std::optional<UserRecord> record(const Look& look) {
    return entryOf<passwd>(look, [](const passwd& entry) {
        return UserRecord{.user = entry.pw_uid,
                          .group = entry.pw_gid,
                          .name = entry.pw_name,
                          .home = entry.pw_dir,
                          .shell = entry.pw_shell};
    });
}

} // namespace

std::optional<UserRecord> userRecord(uid_t user) {
    return record([&](auto... into) { return ::getpwuid_r(user, into...); });
}

std::optional<UserRecord> userRecord(const std::string& name) {
    return record([&](auto... into) { return ::getpwnam_r(name.c_str(), into...); });
}

std::optional<gid_t> groupNamed(const std::string& name) {
    return entryOf<::group>([&](auto... into) { return ::getgrnam_r(name.c_str(), into...); },
                            [](const ::group& entry) { return entry.gr_gid; });
}

std::optional<std::string> groupName(gid_t group) {
    return entryOf<::group>([&](auto... into) { return ::getgrgid_r(group, into...); },
                            [](const ::group& entry) { return std::string(entry.gr_name); });
}

std::vector<gid_t> groupsOf(const UserRecord& user) {
    std::vector<gid_t> groups(16);
    for (;;) {
        int count = static_cast<int>(groups.size());
        if (::getgrouplist(user.name.c_str(), user.group, groups.data(), &count) >= 0) {
            groups.resize(static_cast<std::size_t>(count));
            return groups;
        }
        groups.resize(groups.size() * 2);
    }
}

} // namespace qv
