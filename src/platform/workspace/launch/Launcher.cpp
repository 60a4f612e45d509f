#include "platform/workspace/launch/Launcher.h"

#include "platform/foundation/process/ProcessState.h"
#include "platform/foundation/process/SpawnProcess.h"
#include "platform/foundation/process/Task.h"
#include "platform/foundation/process/UserProcess.h"
#include "platform/foundation/values/Exception.h"
#include "platform/workspace/launch/BusActivation.h"
#include "platform/workspace/launch/LaunchError.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <fcntl.h>
#include <optional>
#include <poll.h>
#include <sys/random.h>
#include <unistd.h>

namespace qv {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::string_view kManagerClient = "/usr/bin/systemd-run";
constexpr std::size_t kLongestComplaint = 1024;

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
    return {static_cast<int>(said.error().code()),
            fmt::format("nothing can be started as user {}", user.name)};
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

// A manager puts variables into the arguments of what it executes, unless the sign is doubled.
std::string literally(std::string_view argument) {
    std::string text;
    for (const char each : argument) {
        text.append(each == '$' ? 2 : 1, each);
    }
    return text;
}

std::vector<std::string> managerArguments(const ApplicationStart& application,
                                          const LaunchSession& session) {
    const bool isUsers = session.manager == LaunchSession::Manager::user;
    std::vector<std::string> words = {
        "--collect",
        "--no-ask-password",
        "--unit=" + unitName(application),
        "--description=" + onOneLine(application.path),
        "--property=Type=exec", // so that what cannot be executed is known
        "--property=WorkingDirectory=" + workingFolder(application, session),
    };
    if (isUsers) {
        words.insert(words.end(), {"--user", "--slice=app.slice"});
    } else {
        words.push_back("--uid=" + session.user.name);
    }
    // A manager knows its user and his folders; of his screen only what it was told.
    for (const std::string& each : isUsers ? session.variables : session.environment()) {
        words.push_back("--setenv=" + each);
    }
    words.emplace_back("--");
    words.push_back(application.command.front());
    for (std::size_t i = 1; i < application.command.size(); ++i) {
        words.push_back(literally(application.command[i]));
    }
    return words;
}

// None when it is late.
std::optional<std::string> readComplaint(int descriptor, Clock::time_point deadline) {
    std::string text;
    std::array<char, 512> piece{};
    for (;;) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
        pollfd entry{descriptor, POLLIN, 0};
        const int ready = left.count() > 0 ? ::poll(&entry, 1, static_cast<int>(left.count())) : 0;
        if (ready == 0) {
            return std::nullopt;
        }
        if (ready < 0) { // a signal
            continue;
        }
        const ssize_t count = ::read(descriptor, piece.data(), piece.size());
        if (count <= 0) {
            return text.substr(0, text.find('\n'));
        }
        text.append(piece.data(), static_cast<std::size_t>(count));
        text.resize(std::min(text.size(), kLongestComplaint));
    }
}

// It has to give up before it is itself: its child would be left.
Refusal startByManager(const ApplicationStart& application, const LaunchSession& session,
                       Clock::time_point deadline) try {
    tl::expected<Pipe, Error> pipe = Pipe::pipe();
    if (!pipe) {
        return {static_cast<int>(pipe.error().code()), "the service manager cannot be asked"};
    }
    Task task;
    task.setLaunchPath(std::string(kManagerClient));
    task.setArguments(managerArguments(application, session));
    std::vector<std::string> environment = {"PATH=/usr/bin:/bin", "LANG=C.UTF-8"};
    if (session.manager == LaunchSession::Manager::user) {
        environment.push_back("XDG_RUNTIME_DIR=" + session.runtimeFolder);
    }
    task.setEnvironment(std::move(environment));
    // As the user's own program it can be traced by him: nothing of ours may be open in it.
    task.setStandardInput(UniqueFd(::open("/dev/null", O_RDONLY | O_CLOEXEC)));
    task.setStandardOutput(UniqueFd(::open("/dev/null", O_WRONLY | O_CLOEXEC)));
    task.setStandardError(std::move(pipe->fileHandleForWriting));
    task.launch();
    constexpr std::chrono::milliseconds kToEndIt{200};
    const auto complaint = readComplaint(pipe->fileHandleForReading.get(), deadline - kToEndIt);
    if (!complaint) { // and the task ends with its owner
        return {ETIMEDOUT, "the service manager does not answer"};
    }
    task.waitUntilExit();
    if (task.terminationReason() == TerminationReason::exit && task.terminationStatus() == 0) {
        return {};
    }
    return {0, fmt::format("the service manager did not start it: {}",
                           complaint->empty() ? "no reason given" : *complaint)};
} catch (const Exception& exception) {
    return {0, exception.reason()};
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
