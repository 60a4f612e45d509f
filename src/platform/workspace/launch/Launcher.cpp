#include "platform/workspace/launch/Launcher.h"

#include "platform/foundation/files/UniqueFd.h"
#include "platform/foundation/process/ProcessState.h"
#include "platform/foundation/process/SpawnProcess.h"
#include "platform/foundation/process/UserProcess.h"
#include "platform/workspace/launch/BusActivation.h"
#include "platform/workspace/launch/LaunchError.h"
#include "platform/workspace/launch/ServiceUnit.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <fcntl.h>
#include <sys/random.h>
#include <unistd.h>

namespace qv {

namespace {

using Clock = std::chrono::steady_clock;

// Why it was not started; nothing when it was.
struct Refusal {
    int errorNumber = 0;
    std::string reason;
};

std::string encoded(const Refusal& refusal) {
    return refusal.reason.empty() ? std::string()
                                  : fmt::format("{} {}", refusal.errorNumber, refusal.reason);
}

Refusal decoded(const std::string& text) {
    Refusal refusal;
    const char* const end = text.data() + text.size();
    const auto [after, error] = std::from_chars(text.data(), end, refusal.errorNumber);
    refusal.reason.assign(after + (after != end ? 1 : 0), end);
    return refusal;
}

Refusal asUser(const UserRecord& user, Clock::time_point deadline,
               const std::function<Refusal()>& start) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
    const auto said = performAsUser(user, [&] { return encoded(start()); }, left);
    if (said) {
        return decoded(*said);
    }
    const auto errorNumber = static_cast<int>(said.error().code());
    return {errorNumber, errorNumber == ETIMEDOUT
                             ? std::string("whoever was to start it does not answer")
                             : fmt::format("nothing can be started as user {}", user.name)};
}

std::string workingFolder(const ApplicationStart& application, const LaunchSession& session) {
    if (!application.workingFolder.empty()) {
        return application.workingFolder;
    }
    return ::access(session.user.home.c_str(), X_OK) == 0 ? session.user.home : "/";
}

// In the process that is the user already. It ends at once, and the application becomes a child of
// the machine's first process.
Refusal startDetached(const ApplicationStart& application, const LaunchSession& session) {
    resetFileModeMask();
    const UniqueFd null(::open("/dev/null", O_RDWR | O_CLOEXEC));
    const std::string folder = workingFolder(application, session);
    if (::chdir(folder.c_str()) != 0) { // else the program would be blamed for it
        return {errno, fmt::format("its working folder {} cannot be entered", folder)};
    }
    const auto spawned = spawnProcess({.program = application.command.front(),
                                       .words = application.command,
                                       .environment = session.environment(),
                                       .directory = ".",
                                       .standard = {null.get(), null.get(), null.get()},
                                       .leads = SpawnRequest::Leads::session});
    return spawned ? Refusal()
                   : Refusal{spawned.error().errorNumber,
                             fmt::format("{} cannot be executed", application.command.front())};
}

// Units of one name refuse each other.
std::string randomWord() {
    std::uint64_t bits = 0;
    if (::getrandom(&bits, sizeof bits, 0) != static_cast<ssize_t>(sizeof bits)) {
        bits =
            static_cast<std::uint64_t>(std::chrono::steady_clock::now().time_since_epoch().count());
    }
    return fmt::format("{:016x}", bits);
}

// As desktops name the units of applications: app-ID@RANDOM.service
std::string unitName(const ApplicationStart& application) {
    constexpr std::size_t kLongest = 100;
    std::string word = application.identifier.substr(0, kLongest);
    for (char& each : word) {
        const bool plain = (each >= 'a' && each <= 'z') || (each >= 'A' && each <= 'Z') ||
                           (each >= '0' && each <= '9') || each == '.' || each == '_';
        each = plain ? each : '_';
    }
    return fmt::format("app-{}@{}.service", word, randomWord());
}

// A manager writes it into a file of lines.
std::string onOneLine(std::string text) {
    std::ranges::replace_if(
        text, [](char each) { return static_cast<unsigned char>(each) < ' '; }, '_');
    return text;
}

// In a process that its user cannot trace, and without a program of its own: it lives where the
// service does.
Refusal startByManager(const ApplicationStart& application, const LaunchSession& session,
                       Clock::time_point deadline) {
    const bool isUsers = session.manager == LaunchSession::Manager::user;
    const ServiceUnit unit{
        .name = unitName(application),
        .description = onOneLine(application.path),
        .slice = isUsers ? "app.slice" : "",
        .user = isUsers ? "" : session.user.name,
        .workingFolder = workingFolder(application, session),
        // A manager knows its user and his folders; of his screen only what it was told.
        .environment = isUsers ? session.variables : session.environment(),
        .command = application.command,
    };
    constexpr std::chrono::milliseconds kToSayWhy{200};
    const std::string failure = startUnit(session.managerSocket, unit, deadline - kToSayWhy);
    return {0, failure.empty() ? failure
                               : fmt::format("the service manager did not start it: {}", failure)};
}

} // namespace

Error launch(const ApplicationStart& application, const LaunchSession& session,
             std::chrono::milliseconds patience) {
    const Clock::time_point begin = Clock::now();
    const Clock::time_point deadline = begin + patience;
    Refusal refusal{
        0, fmt::format("only a session bus starts it, and user {} has none", session.user.name)};
    if (!application.busName.empty() && !session.busAddress.empty()) {
        // Its Exec needs time as well.
        refusal = asUser(session.user, begin + patience * 3 / 4, [&]() -> Refusal {
            return {0, activateOnBus(session.busAddress, application.busName)};
        });
        if (refusal.reason.empty()) {
            return {};
        }
    }
    if (!application.command.empty()) {
        switch (session.manager) {
        case LaunchSession::Manager::user:
            refusal = asUser(session.user, deadline,
                             [&] { return startByManager(application, session, deadline); });
            break;
        case LaunchSession::Manager::system:
            // In a child as well, so that a manager that does not answer keeps nobody waiting.
            refusal = asUser(userRecord(::geteuid()).value_or(UserRecord()), deadline,
                             [&] { return startByManager(application, session, deadline); });
            break;
        case LaunchSession::Manager::none:
            refusal =
                asUser(session.user, deadline, [&] { return startDetached(application, session); });
            break;
        }
    }
    return refusal.reason.empty() ? Error()
                                  : launchError(launch_error::kUnknown, application.path,
                                                refusal.reason, refusal.errorNumber);
}

} // namespace qv
