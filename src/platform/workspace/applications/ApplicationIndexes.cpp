#include "platform/workspace/applications/ApplicationIndexes.h"

#include "platform/workspace/applications/Patience.h"

#include <algorithm>
#include <unistd.h>
#include <utility>

namespace qv {

namespace {

ApplicationIndex& madeOnce(std::optional<ApplicationIndex>& index,
                           const std::vector<ApplicationFolders>& folders) {
    return index ? *index : index.emplace(folders);
}

// Returns none also when the user does not answer.
std::optional<std::string>
askAsUser(const UserRecord& user, const ApplicationFolders& folders,
          const std::function<EntryTable::Answer(ApplicationIndex&)>& question,
          UserProcesses& processes) {
    const auto look = [&](const Value& /*input*/) -> WorkResult {
        ApplicationIndex index({folders});
        return Value::data(question(index).path.value_or(""));
    };
    const WorkResult found = processes.perform(
        user.user,
        {.as = user, .run = look, .patience = processes.patienceWith(user.user, kPatienceToLook)});
    std::string path(found && found->is(Value::Kind::data) ? found->asData() : "");
    const bool isPath = path.starts_with('/') && path.find('\0') == std::string::npos;
    return isPath ? std::optional(std::move(path)) : std::nullopt;
}

bool isBelow(const ApplicationFolders& folders, const std::string& path) {
    const auto holdsPath = [&](const std::string& folder) {
        return path.starts_with(folder + "/");
    };
    return std::ranges::any_of(folders.bundles, holdsPath, &BundleFolder::path) ||
           std::ranges::any_of(folders.entries, holdsPath);
}

// The keys between the process that reads a version and this one.
constexpr std::string_view kVersion = "version";
constexpr std::string_view kListFault = "fault";

Value encodedVersion(const ApplicationVersion& version) {
    std::vector<std::pair<Value, Value>> pairs;
    if (version.value) {
        pairs.emplace_back(Value::string(kVersion), *version.value);
    }
    if (version.listFault) {
        pairs.emplace_back(Value::string(kListFault), Value::string(*version.listFault));
    }
    return Value::dictionary(std::move(pairs));
}

ApplicationVersion decodedVersion(const Value& encoding) {
    ApplicationVersion version;
    if (const Value* value = encoding.find(kVersion)) {
        version.value = *value;
    }
    const Value* fault = encoding.find(kListFault);
    if (fault != nullptr && fault->is(Value::Kind::string)) {
        version.listFault = fault->asString();
    }
    return version;
}

} // namespace

ApplicationVersion ApplicationIndexes::version(uid_t user, const std::string& path,
                                               std::string_view key, UserProcesses& processes) {
    const std::optional<UserRecord> other = user == ::geteuid() ? std::nullopt : userRecord(user);
    if (!other || isBelow(applicationFoldersFor(*other).front(), path)) {
        return versionOfApplication(path, key);
    }
    const WorkResult found =
        processes.perform(user, {.as = *other,
                                 .run = [&](const Value& /*input*/) -> WorkResult {
                                     return encodedVersion(versionOfApplication(path, key));
                                 },
                                 .patience = processes.patienceWith(user, kPatienceToLook)});
    return found ? decodedVersion(*found) : ApplicationVersion();
}

std::optional<std::string> ApplicationIndexes::ask(uid_t user, const Question& question,
                                                   UserProcesses& processes) {
    const std::optional<UserRecord> other = user == ::geteuid() ? std::nullopt : userRecord(user);
    if (!other) {
        return question(madeOnce(own_, ownApplicationFolders())).path;
    }
    const std::vector<ApplicationFolders> sets = applicationFoldersFor(*other);
    EntryTable::Answer answer = question(madeOnce(shared_, {sets.front()}));
    return answer.isTaken ? std::move(answer.path)
                          : askAsUser(*other, sets.back(), question, processes);
}

std::optional<std::string> ApplicationIndexes::pathForIdentifier(uid_t user,
                                                                 std::string_view identifier,
                                                                 UserProcesses& processes) {
    return ask(
        user, [&](ApplicationIndex& index) { return index.withIdentifier(identifier); }, processes);
}

std::optional<std::string> ApplicationIndexes::pathForName(uid_t user, std::string_view name,
                                                           UserProcesses& processes) {
    return ask(
        user,
        [&](ApplicationIndex& index) {
            std::optional<std::string> path = index.pathForName(name);
            return EntryTable::Answer{.isTaken = path.has_value(), .path = path};
        },
        processes);
}

} // namespace qv
