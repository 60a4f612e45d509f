#include "platform/workspace/launch/Launcher.h"

#include "platform/foundation/os/Descriptor.h"
#include "platform/foundation/process/state/ProcessState.h"
#include "platform/foundation/process/task/SpawnProcess.h"
#include "platform/workspace/launch/BusActivation.h"
#include "platform/workspace/launch/LaunchError.h"
#include "platform/workspace/launch/ServiceUnit.h"

#include <fmt/core.h>

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <functional>
#include <sys/random.h>
#include <unistd.h>

namespace qv {

namespace {

using Clock = std::chrono::steady_clock;

Error refusal(const ApplicationStart& application, std::string_view reason, int errorNumber = 0) {
    return launchError(launch_error::kUnknown, application.path, reason, errorNumber);
}

std::string workingFolder(const ApplicationStart& application, const LaunchSession& session) {
    if (!application.workingFolder.empty()) {
        return application.workingFolder;
    }
    return ::access(session.user.home.c_str(), X_OK) == 0 ? session.user.home : "/";
}

// Runs in the process that is the user already. The process ends at once, and the application
// becomes a child of the machine's first process.
Error startDetached(const ApplicationStart& application, const LaunchSession& session) {
    resetFileModeMask();
    const Descriptor null(::open("/dev/null", O_RDWR | O_CLOEXEC));
    const std::string folder = workingFolder(application, session);
    if (::chdir(folder.c_str()) != 0) { // otherwise the program would be blamed for it
        return refusal(application, fmt::format("its working folder {} cannot be entered", folder),
                       errno);
    }
    const auto spawned = spawnProcess({.program = application.command.front(),
                                       .words = application.command,
                                       .environment = session.environment(),
                                       .directory = ".",
                                       .standard = {null.get(), null.get(), null.get()},
                                       .leads = SpawnRequest::Leads::session});
    return spawned ? Error()
                   : refusal(application,
                             fmt::format("{} cannot be executed", application.command.front()),
                             spawned.error().errorNumber);
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

// The name that desktops give the units of applications: app-ID@RANDOM.service
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

// Runs in a process that its user cannot trace, and without a program of its own.
Error startByManager(const ApplicationStart& application, const LaunchSession& session,
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
    const std::string failure = startUnit(session.managerSocket, unit, deadline);
    return failure.empty()
               ? Error()
               : refusal(application,
                         fmt::format("the service manager did not start it: {}", failure));
}

// One launch, which tries one starter after another.
class Launch {
public:
    Launch(const ApplicationStart& application, const LaunchSession& session,
           UserProcesses& processes, const LaunchPatience& patience)
        : application_(application), session_(session), processes_(processes),
          patience_({.bus = processes.patienceWith(session.user.user, patience.bus),
                     .manager = processes.patienceWith(session.user.user, patience.manager)}) {}

    Error run() {
        Error error =
            refusal(application_, fmt::format("only a session bus starts it, and user {} has none",
                                              session_.user.name));
        if (!application_.busName.empty() && !session_.busAddress.empty()) {
            error = attempt(session_.user, patience_.bus, [&](std::chrono::milliseconds time) {
                const std::string failure =
                    activateOnBus(session_.busAddress, application_.busName, time);
                return failure.empty() ? Error() : refusal(application_, failure);
            });
            if (!error) {
                return error;
            }
        }
        return application_.command.empty() ? error : runCommand();
    }

private:
    Error runCommand() {
        if (session_.manager == LaunchSession::Manager::none) {
            return attempt(session_.user, patience_.manager, [&](std::chrono::milliseconds) {
                return startDetached(application_, session_);
            });
        }
        // The machine's is asked by a child as well, so that it keeps nobody waiting.
        const bool isUsers = session_.manager == LaunchSession::Manager::user;
        return attempt(isUsers ? session_.user : userRecord(::geteuid()).value_or(UserRecord()),
                       patience_.manager, [&](std::chrono::milliseconds time) {
                           return startByManager(application_, session_, Clock::now() + time);
                       });
    }

    // `start` gets less time than there is, so that it can say why it failed.
    Error attempt(const UserRecord& as, std::chrono::milliseconds patience,
                  const std::function<Error(std::chrono::milliseconds)>& start) {
        const uid_t user = session_.user.user;
        const auto enough = patience - std::min(patience / 5, std::chrono::milliseconds(200));
        const Clock::time_point begin = Clock::now();
        const WorkResult result = processes_.perform(
            user, {.as = as,
                   .run = [&](const Value& /*input*/) { return resultOf(start(enough)); },
                   .patience = patience});
        if (!result && Clock::now() - begin >= enough) {
            processes_.noteLate(user);
            wasLate_ = true;
        } else if (result && !wasLate_) {
            processes_.noteAnswer(user);
        }
        return result ? Error() : told(as, result.error());
    }

    [[nodiscard]] Error told(const UserRecord& as, const Error& error) const {
        const int cause = workerFailure(error);
        if (cause == 0) {
            return error;
        }
        return refusal(application_,
                       cause == ETIMEDOUT ? std::string("the service manager did not answer")
                                          : whyNotPerformed(as, error),
                       cause);
    }

    const ApplicationStart& application_;
    const LaunchSession& session_;
    UserProcesses& processes_;
    LaunchPatience patience_;
    bool wasLate_ = false; // a bus or manager that was asked was late
};

} // namespace

Error launch(const ApplicationStart& application, const LaunchSession& session,
             UserProcesses& processes, const LaunchPatience& patience) {
    return Launch(application, session, processes, patience).run();
}

} // namespace qv
