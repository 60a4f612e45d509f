#pragma once

#include "platform/foundation/process/worker/UserProcesses.h"
#include "platform/preferences/DomainFile.h"
#include "platform/preferences/DomainPlace.h"
#include "platform/preferences/PreferencesService.h"

#include <tl/expected.hpp>

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>

namespace qv {

/// Preferences in property-list files, where the programs of Swift's Foundation on Linux look for
/// them; docs/preferences.md tells where that is. Files are written as XML, through a new file that
/// replaces the old one, under a lock that the processes of this system share.
///
/// Another user's files are read and written by a process that is that user.
///
/// Values are those of property lists: no null objects, URLs, errors, UIDs or sets. Dates lose
/// their fractions of a second. A value that cannot be stored, or a key that is missing, fails the
/// synchronization, with everything else that was noted for the domain.
class PreferenceFiles : public PreferencesService {
public:
    /// `processes` work as other users, and may go from one such object to the next.
    explicit PreferenceFiles(PreferenceEnvironment environment = {},
                             std::shared_ptr<UserProcesses> processes = nullptr);

    void setValue(const std::optional<std::string>& key, const std::optional<Value>& value,
                  const PreferencesDomain& domain) override;
    Error synchronize(const PreferencesDomain& domain) override;
    std::optional<Value> copyValue(std::string_view key, const PreferencesDomain& domain) override;
    std::optional<Value> copyAppValue(std::string_view key,
                                      const std::string& applicationID) override;

    /// All the stored values of a domain, a dictionary; none when there is no file.
    [[nodiscard]] tl::expected<std::optional<Value>, Error>
    values(const PreferencesDomain& domain) const;

private:
    using DomainKey = std::tuple<std::optional<std::string>, std::optional<std::string>,
                                 std::optional<std::string>>;
    struct Noted {
        preferences::Changes changes;
        bool lacksKey = false;
    };

    [[nodiscard]] Error store(const Noted& noted, const PreferencesDomain& domain) const;
    [[nodiscard]] WorkResult performAs(const UserRecord& user,
                                       const preferences::DomainPlace& place,
                                       const std::function<WorkResult(const Value&)>& work) const;
    [[nodiscard]] tl::expected<std::optional<Value>, Error>
    read(const preferences::DomainPlace& place, const std::optional<std::string>& key) const;

    PreferenceEnvironment environment_;
    std::shared_ptr<UserProcesses> processes_;
    std::map<DomainKey, Noted> noted_;
};

} // namespace qv
