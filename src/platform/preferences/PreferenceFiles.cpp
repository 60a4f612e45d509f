#include "platform/preferences/PreferenceFiles.h"

#include "platform/foundation/plist/PropertyList.h"
#include "platform/preferences/PreferenceError.h"
#include "platform/preferences/Storable.h"

#include <fmt/core.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <utility>
#include <vector>

namespace qv {

using preferences::Changes;
using preferences::DomainPlace;
using preferences::failureAt;

namespace {

// The language between this process and the one that works as a user: one letter, then the rest.
constexpr char kNothing = 'n';
constexpr char kValue = 'v';   // a binary property list
constexpr char kFailure = 'f'; // the errno, a blank, the description

// What another user's values may take; the largest file, and what its encoding may add to it.
constexpr std::size_t kLongestAnswer = std::size_t{512} << 20U;

std::string failureText(const Error& error) {
    return fmt::format("{}{} {}", kFailure, error.code(), error.localizedDescription());
}

Error failureFrom(std::string_view text) {
    int code = EPROTO;
    const char* const end = text.data() + text.size();
    const char* rest = std::from_chars(text.data() + 1, end, code).ptr;
    rest += rest == end ? 0 : 1;
    return Error::withDescription(error_domain::kPOSIX, code,
                                  std::string_view(rest, static_cast<std::size_t>(end - rest)));
}

// Why a user's process has not done what it should.
Error failureToAct(const UserRecord& user, const DomainPlace& place, const Error& error) {
    const std::string& name = user.name;
    const int code = static_cast<int>(error.code());
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

std::string answerTo(const DomainPlace& place, const std::optional<std::string>& key) {
    const auto values = preferences::readDomain(place);
    if (!values) {
        return failureText(values.error());
    }
    const std::optional<Value>& all = *values;
    const Value* wanted = all ? &*all : nullptr;
    if (wanted != nullptr && key) {
        wanted = wanted->find(*key);
    }
    if (wanted == nullptr) {
        return {kNothing};
    }
    const auto list = PropertyList::dataWithPropertyList(*wanted, PropertyListFormat::binary);
    return list ? kValue + *list : failureText(preferences::refusalAt(place.path(), list.error()));
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

PreferenceFiles::PreferenceFiles(PreferenceSurroundings surroundings,
                                 std::shared_ptr<UserProcesses> processes)
    : surroundings_(std::move(surroundings)),
      processes_(processes ? std::move(processes) : std::make_shared<UserProcesses>()) {}

tl::expected<std::string, Error>
PreferenceFiles::performAs(const UserRecord& user, const std::function<std::string()>& work,
                           std::size_t longest) const {
    auto answer = processes_->perform(
        user, work,
        {.patience = processes_->patienceWith(user.user, surroundings_.userPatience),
         .longest = longest});
    if (answer) {
        processes_->noteAnswer(user.user);
    }
    return answer;
}

// A value of another user's, or all of them.
tl::expected<std::optional<Value>, Error>
PreferenceFiles::askUser(const UserRecord& user, const DomainPlace& place,
                         const std::optional<std::string>& key) const {
    const auto answer = performAs(user, [&] { return answerTo(place, key); }, kLongestAnswer);
    if (!answer) {
        return tl::unexpected(failureToAct(user, place, answer.error()));
    }
    if (answer->front() == kFailure) {
        return tl::unexpected(failureFrom(*answer));
    }
    if (answer->front() == kNothing) {
        return std::nullopt;
    }
    auto list = PropertyList::propertyListWithData(std::string_view(*answer).substr(1));
    return list ? tl::expected<std::optional<Value>, Error>(std::move(list->root))
                : tl::unexpected(preferences::refusalAt(place.path(), list.error()));
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
    const auto place = preferences::placeOf(domain, surroundings_);
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
        return preferences::changeDomain(*place, noted.changes, surroundings_.lockPatience);
    }
    const auto change = [&]() -> std::string {
        const Error error =
            preferences::changeDomain(*place, noted.changes, surroundings_.lockPatience);
        return error ? failureText(error) : std::string{kNothing};
    };
    const auto answer = performAs(*user, change, kLongestUserResult);
    if (!answer) {
        return failureToAct(*user, *place, answer.error());
    }
    return answer->front() == kFailure ? failureFrom(*answer) : Error();
}

tl::expected<std::optional<Value>, Error>
PreferenceFiles::values(const PreferencesDomain& domain) const {
    const auto place = preferences::placeOf(domain, surroundings_);
    if (!place) {
        return tl::unexpected(place.error());
    }
    const std::optional<UserRecord>& user = place->otherUser;
    return user ? askUser(*user, *place, std::nullopt) : preferences::readDomain(*place);
}

std::optional<Value> PreferenceFiles::copyValue(std::string_view key,
                                                const PreferencesDomain& domain) {
    const auto place = preferences::placeOf(domain, surroundings_);
    if (!place) {
        return std::nullopt;
    }
    if (const std::optional<UserRecord>& user = place->otherUser) {
        return askUser(*user, *place, std::string(key)).value_or(std::nullopt);
    }
    const auto values = preferences::readDomain(*place).value_or(std::nullopt);
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
