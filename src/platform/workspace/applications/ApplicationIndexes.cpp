#include "platform/workspace/applications/ApplicationIndexes.h"

#include "platform/workspace/applications/Patience.h"

#include <unistd.h>
#include <utility>

namespace qv {

namespace {

ApplicationIndex& madeOnce(std::optional<ApplicationIndex>& index,
                           const std::vector<ApplicationFolders>& folders) {
    return index ? *index : index.emplace(folders);
}

// None also when he does not answer.
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

} // namespace

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
