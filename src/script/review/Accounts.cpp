#include "script/review/Accounts.h"

#include "platform/foundation/process/state/UserRecord.h"

namespace qv {

namespace {

template <typename Map, typename Look>
auto askOnce(Map& asked, const typename Map::key_type& key, const Look& look) {
    const auto [entry, isNew] = asked.try_emplace(key);
    if (isNew) {
        entry->second = look();
    }
    return entry->second;
}

} // namespace

std::optional<std::uint32_t> Accounts::user(const std::string& name) {
    return askOnce(users_, name, [&]() -> std::optional<std::uint32_t> {
        const std::optional<UserRecord> record = userRecord(name);
        return record ? std::optional<std::uint32_t>(record->user) : std::nullopt;
    });
}

std::optional<std::uint32_t> Accounts::group(const std::string& name) {
    return askOnce(groups_, name,
                   [&]() -> std::optional<std::uint32_t> { return groupNamed(name); });
}

std::optional<std::string> Accounts::userName(std::uint32_t number) {
    return askOnce(userNames_, number, [&]() -> std::optional<std::string> {
        const std::optional<UserRecord> record = userRecord(uid_t{number});
        return record && user(record->name) == number ? std::optional(record->name) : std::nullopt;
    });
}

std::optional<std::string> Accounts::groupName(std::uint32_t number) {
    return askOnce(groupNames_, number, [&]() -> std::optional<std::string> {
        std::optional<std::string> name = qv::groupName(number);
        return name && group(*name) == number ? name : std::nullopt;
    });
}

} // namespace qv
