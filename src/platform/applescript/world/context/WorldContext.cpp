#include "platform/applescript/world/context/WorldContext.h"

#include "platform/applescript/values/ScriptError.h"
#include "platform/foundation/process/state/UserRecord.h"
#include "platform/foundation/values/Trimmed.h"

#include <fmt/core.h>

#include <algorithm>
#include <unistd.h>

namespace qv::applescript::world {

const LaunchSession* WorldContext::session() {
    if (!std::exchange(isSessionLookedFor, true)) {
        if (auto found = findLaunchSession(requester, *processes, runFolder)) {
            knownSession = std::move(*found);
        }
    }
    return knownSession ? &*knownSession : nullptr;
}

const LaunchSession& WorldContext::screenSession() {
    const LaunchSession* const found = session();
    const bool hasScreen =
        found != nullptr && std::ranges::any_of(found->variables, [](const std::string& each) {
            return each.starts_with("DISPLAY=") || each.starts_with("WAYLAND_DISPLAY=");
        });
    if (!hasScreen) {
        throw ScriptError{.number = error_number::kNoUserInteraction,
                          .brief = "No user interaction allowed.",
                          .application = {}};
    }
    return *found;
}

const UserRecord& WorldContext::user() {
    if (!knownUser) {
        const uid_t own = ::geteuid();
        const LaunchSession* const found = session();
        knownUser = found != nullptr
                        ? found->user
                        : userRecord(own).value_or(UserRecord{.user = own,
                                                              .group = ::getegid(),
                                                              .name = fmt::format("{}", own),
                                                              .home = "/",
                                                              .shell = ""});
    }
    return *knownUser;
}

WorkResult WorldContext::performAs(const UserRecord& user, const std::function<WorkResult()>& run,
                                   std::chrono::milliseconds patience) {
    constexpr std::size_t kLongest = std::size_t{4} << 20U;
    return processes->perform(user.user, {.as = user,
                                          .run = [&](const Value& /*input*/) { return run(); },
                                          .input = {},
                                          .patience = patience,
                                          .longest = kLongest,
                                          .descriptors = {}});
}

Deadline deadlineOf(const WorldContext& context, std::chrono::milliseconds timeout) {
    return Deadline::after(context.end.left(timeout));
}

std::vector<std::pair<std::string, std::string>> assignmentsIn(std::string_view text) {
    std::vector<std::pair<std::string, std::string>> pairs;
    while (!text.empty()) {
        const std::size_t end = std::min(text.find('\n'), text.size());
        const std::string_view line = trimmed(text.substr(0, end));
        text.remove_prefix(std::min(end + 1, text.size()));
        const std::size_t sign = line.find('=');
        if (sign == std::string_view::npos || line.starts_with('#')) {
            continue;
        }
        std::string_view value = line.substr(sign + 1);
        if (value.size() > 1 && value.starts_with('"') && value.ends_with('"')) {
            value = value.substr(1, value.size() - 2);
        }
        pairs.emplace_back(line.substr(0, sign), value);
    }
    return pairs;
}

} // namespace qv::applescript::world
