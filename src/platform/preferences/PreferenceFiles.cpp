#include "platform/preferences/PreferenceFiles.h"

#include "platform/preferences/PreferenceError.h"
#include "platform/preferences/Storable.h"

#include <fmt/core.h>

#include <cerrno>
#include <utility>
#include <vector>

namespace qv {

using preferences::Changes;
using preferences::DomainPlace;
using preferences::failureAt;

namespace {

// The most bytes of another user's values: the largest file, and the share that its encoding may
// add to it.
constexpr std::size_t kLongestAnswer = std::size_t{512} << 20U;

// The error of a user's process that has not done its work.
Error failureToAct(const UserRecord& user, const DomainPlace& place, int code) {
    const std::string& name = user.name;
    switch (code) {
    case EPERM:
        return failureAt(place.path(), code, fmt::format("may not act as the user \"{}\"", name));
    case ETIMEDOUT:
        return failureAt(place.path(), code,
                         fmt::format("what acts as the user \"{}\" takes too long", name));
    case EBUSY:
        return failureAt(place.path(), code,
                         fmt::format("what acted as the user \"{}\" before still hangs", name));
    case ECHILD:
        return failureAt(place.path(), code,
                         fmt::format("what acted as the user \"{}\" was ended", name));
    default:
        return failureAt(place.path(), code);
    }
}

// The values of a domain, or of one of its keys alone; the null object if the file is missing.
WorkResult valuesOf(const DomainPlace& place, const std::optional<std::string>& key) {
    auto values = preferences::readDomain(place);
    if (!values) {
        return tl::unexpected(values.error());
    }
    const Value all = values->value_or(Value());
    if (!key) {
        return all;
    }
    const Value* const found = all.find(*key);
    return found != nullptr ? Value::dictionary({{*key, *found}}) : Value();
}

Error whyUnstorable(const Changes& changes, const std::string& path) {
    using Kind = Value::Kind;
    std::vector<std::pair<Value, Value>> pairs;
    for (const auto& [key, value] : changes) {
        if (value) {
            pairs.emplace_back(Value::string(key), *value);
        }
    }
    const auto found =
        preferences::findKinds(Value::dictionary(std::move(pairs)),
                               {Kind::null, Kind::url, Kind::error, Kind::uid, Kind::set});
    return found ? failureAt(path, EINVAL, fmt::format("cannot hold {}", *found)) : Error();
}

} // namespace

PreferenceFiles::PreferenceFiles(PreferenceEnvironment environment,
                                 std::shared_ptr<UserProcesses> processes)
    : environment_(std::move(environment)),
      processes_(processes ? std::move(processes) : std::make_shared<UserProcesses>()) {}

WorkResult PreferenceFiles::performAs(const UserRecord& user, const DomainPlace& place,
                                      const std::function<WorkResult(const Value&)>& work) const {
    auto result = processes_->perform(
        user.user, {.as = user,
                    .run = work,
                    .patience = processes_->patienceWith(user.user, environment_.userPatience),
                    .longest = kLongestAnswer});
    if (const int cause = result ? 0 : workerFailure(result.error()); cause != 0) {
        return tl::unexpected(failureToAct(user, place, cause));
    }
    processes_->noteAnswer(user.user);
    return result;
}

// Returns all values, or that of a key alone; none if the file is missing.
tl::expected<std::optional<Value>, Error>
PreferenceFiles::read(const DomainPlace& place, const std::optional<std::string>& key) const {
    const std::optional<UserRecord>& user = place.otherUser;
    if (!user) {
        return preferences::readDomain(place);
    }
    auto values =
        performAs(*user, place, [&](const Value& /*input*/) { return valuesOf(place, key); });
    if (!values) {
        return tl::unexpected(values.error());
    }
    return values->isNull() ? std::nullopt : std::optional(std::move(*values));
}

void PreferenceFiles::setValue(const std::optional<std::string>& key,
                               const std::optional<Value>& value, const PreferencesDomain& domain) {
    Noted& noted = noted_[{domain.applicationID, domain.userName, domain.hostName}];
    if (key) {
        noted.changes.insert_or_assign(*key, value);
    } else {
        noted.lacksKey = true;
    }
}

Error PreferenceFiles::synchronize(const PreferencesDomain& domain) {
    const auto node = noted_.extract({domain.applicationID, domain.userName, domain.hostName});
    return store(node ? node.mapped() : Noted{}, domain);
}

Error PreferenceFiles::store(const Noted& noted, const PreferencesDomain& domain) const {
    const auto place = preferences::placeOf(domain, environment_);
    if (!place) {
        return place.error();
    }
    if (noted.lacksKey) {
        return failureAt(place->path(), EINVAL, "a value was set without a key");
    }
    if (Error error = whyUnstorable(noted.changes, place->path())) {
        return error;
    }
    const std::optional<UserRecord>& user = place->otherUser;
    if (!user) {
        return preferences::changeDomain(*place, noted.changes, environment_.lockPatience);
    }
    const auto change = [&](const Value& /*input*/) {
        return resultOf(
            preferences::changeDomain(*place, noted.changes, environment_.lockPatience));
    };
    const WorkResult result = performAs(*user, *place, change);
    return result ? Error() : result.error();
}

tl::expected<std::optional<Value>, Error>
PreferenceFiles::values(const PreferencesDomain& domain) const {
    const auto place = preferences::placeOf(domain, environment_);
    if (!place) {
        return tl::unexpected(place.error());
    }
    return read(*place, std::nullopt);
}

std::optional<Value> PreferenceFiles::copyValue(std::string_view key,
                                                const PreferencesDomain& domain) {
    const auto place = preferences::placeOf(domain, environment_);
    if (!place) {
        return std::nullopt;
    }
    const auto values = read(*place, std::string(key)).value_or(std::nullopt);
    const Value* found = values ? values->find(key) : nullptr;
    return found != nullptr ? std::optional(*found) : std::nullopt;
}

std::optional<Value> PreferenceFiles::copyAppValue(std::string_view key,
                                                   const std::string& applicationID) {
    using namespace preferences; // NOLINT(google-build-using-namespace): the designations
    for (const std::string_view user : {kCurrentUser, kAnyUser}) {
        for (const std::string_view application :
             {std::string_view(applicationID), kAnyApplication}) {
            for (const std::string_view host : {kCurrentHost, kAnyHost}) {
                auto value = copyValue(
                    key, {std::string(application), std::string(user), std::string(host)});
                if (value) {
                    return value;
                }
            }
        }
    }
    return std::nullopt;
}

} // namespace qv
