#include "platform/applescript/world/applications/ApplicationProcesses.h"

#include "platform/applescript/world/applications/BusCalls.h"
#include "platform/applescript/world/context/FilePaths.h"
#include "platform/foundation/files/item/HeldItem.h"
#include "platform/foundation/os/ProcessIdentity.h"
#include "platform/workspace/applications/ExecLine.h"

#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <poll.h>
#include <span>
#include <string_view>
#include <sys/syscall.h>
#include <unistd.h>

namespace qv::applescript::world {

namespace {

// Programs that execute what their arguments name, by how their names begin.
constexpr std::array<std::string_view, 16> kInterpreters = {
    "sh",   "bash", "dash", "zsh", "ksh",  "python", "perl",     "ruby",
    "java", "node", "gjs",  "php", "mono", "wine",   "electron", "env"};
// Programs that start an application elsewhere, and those that everybody uses for everything: a
// process of theirs is an application's only where its unit says so.
constexpr std::array<std::string_view, 27> kShared = {
    "flatpak",   "snap",    "systemd-run", "sleep", "tail",  "cat",        "tee",
    "yes",       "true",    "timeout",     "nice",  "nohup", "setsid",     "xargs",
    "watch",     "su",      "sudo",        "ssh",   "sshd",  "login",      "systemd",
    "coreutils", "busybox", "find",        "grep",  "less",  "dbus-daemon"};

bool beginsLikeOne(std::string_view name, std::span<const std::string_view> names) {
    return std::ranges::any_of(names, [&](std::string_view each) {
        // `python3.11` is one, `shotwell` is not
        return name.starts_with(each) &&
               name.substr(each.size()).find_first_not_of("0123456789.") == std::string_view::npos;
    });
}

std::string withoutLinks(const std::string& path) {
    const auto item = holdItem(path, LastLink::follow);
    std::string real = item ? pathOfHeldItem(item->get()) : std::string();
    return real.empty() ? path : real;
}

std::string plainUnitWord(std::string_view identifier) {
    std::string word(identifier);
    for (char& each : word) {
        const bool isPlain = (each >= 'a' && each <= 'z') || (each >= 'A' && each <= 'Z') ||
                             (each >= '0' && each <= '9') || each == '.' || each == '_';
        each = isPlain ? each : '_';
    }
    return word;
}

// `app-[LAUNCHER-]IDENTIFIER@WORD.service` and `app-[LAUNCHER-]IDENTIFIER-WORD.scope`.
bool isUnitOf(std::string_view unit, std::string_view identifier) {
    const std::size_t at = unit.find('@');
    const std::size_t end = at != std::string_view::npos ? at : unit.rfind('-');
    if (identifier.empty() || end == std::string_view::npos || end < 4) {
        return false;
    }
    std::string name(unit.substr(4, end - 4));
    constexpr std::string_view kDash = "\\x2d"; // systemd.unit(5)
    for (std::size_t place = 0; (place = name.find(kDash, place)) != std::string::npos;) {
        name.replace(place, kDash.size(), "-");
    }
    return std::ranges::any_of(
        std::array{std::string(identifier), plainUnitWord(identifier)},
        [&](const auto& each) { return name == each || name.ends_with("-" + each); });
}

// Recognises the processes of an application.
class Recognition {
public:
    Recognition(const ApplicationStart& application, uid_t user)
        : identifier_(application.identifier), words_(application.command), user_(user) {
        // A terminal runs the command behind its own words, and so does env.
        if (words_.size() > 2 && words_[1] == "-e") {
            words_.erase(words_.begin(), words_.begin() + 2);
        }
        while (words_.size() > 1 &&
               (lastName(words_[0]) == "env" || words_[0].find('=') != std::string::npos)) {
            words_.erase(words_.begin());
        }
        if (words_.empty()) {
            return;
        }
        if (!words_[0].starts_with('/')) {
            words_[0] = findProgram(words_[0]).value_or(words_[0]);
        }
        program_ = withoutLinks(words_[0]);
        const std::string_view name = lastName(program_);
        // Other programs are known by themselves, unless the application is one use of them. An
        // interpreter's options alone could belong to any use of it.
        needsArguments_ = std::any_of(words_.begin() + 1, words_.end(),
                                      [](const auto& each) { return !each.starts_with('-'); });
        isShared_ = beginsLikeOne(name, kShared) || beginsLikeOne(lastName(words_[0]), kShared) ||
                    (beginsLikeOne(name, kInterpreters) && !needsArguments_);
    }

    [[nodiscard]] bool isOne(const RunningProcess& process) const {
        return process.id != ::getpid() && process.id != 1 && looksLikeOne(process) &&
               (user_ == 0 || userOf(process.id) == user_);
    }

private:
    [[nodiscard]] bool looksLikeOne(const RunningProcess& process) const {
        if (!program_.empty() && !isShared_) {
            if (process.executable == program_) {
                return !needsArguments_ || hasOwnArguments(process.id);
            }
            if (executesScript(process)) {
                return true;
            }
        }
        return isUnitOf(applicationUnitOf(process.id), identifier_);
    }
    [[nodiscard]] bool hasOwnArguments(pid_t process) const {
        const std::vector<std::string> words = argumentsOf(process);
        return words_.size() > 1 && words.size() >= words_.size() &&
               std::equal(words_.begin() + 1, words_.end(), words.begin() + 1);
    }
    // The kernel puts the script's path behind the interpreter and its one argument.
    [[nodiscard]] bool executesScript(const RunningProcess& process) const {
        if (!beginsLikeOne(lastName(process.executable), kInterpreters)) {
            return false;
        }
        const std::vector<std::string> words = argumentsOf(process.id);
        const auto isProgram = [&](std::size_t place) {
            return words.size() > place && (words[place] == words_[0] || words[place] == program_);
        };
        return isProgram(1) || (words.size() > 2 && words[1].starts_with('-') && isProgram(2));
    }

    std::string identifier_;
    std::vector<std::string> words_;
    std::string program_;
    uid_t user_;
    bool isShared_ = false;
    bool needsArguments_ = false;
};

struct Held {
    RunningProcess process;
    Descriptor pidfd;
};

// The processes are held first, then found: a number that belongs to another process by now is not
// among those that are found.
std::vector<Held> holdProcessesOf(WorldContext& context, const ApplicationStart& application) {
    std::vector<Held> held;
    for (RunningProcess& each : processesOf(context, application)) {
        Descriptor pidfd = openPidfd(each.id);
        if (pidfd) {
            held.push_back({std::move(each), std::move(pidfd)});
        }
    }
    const std::vector<RunningProcess> still = processesOf(context, application);
    std::erase_if(held, [&](const Held& each) {
        return std::ranges::find(still, each.process.id, &RunningProcess::id) == still.end();
    });
    return held;
}

bool haveEnded(const std::vector<Held>& held) {
    return std::ranges::all_of(held, [](const Held& each) { return hasEnded(each.pidfd.get()); });
}

bool waitForAll(const std::vector<Held>& held, const Deadline& deadline) {
    for (const Held& each : held) {
        pollfd entry{each.pidfd.get(), POLLIN, 0};
        while (!hasEnded(each.pidfd.get())) {
            if (deadline.hasPassed()) {
                return false;
            }
            ::poll(&entry, 1, deadline.pollTimeout());
        }
    }
    return true;
}

// A process that another of them has started ends with it.
void terminate(const std::vector<Held>& held) {
    for (const Held& each : held) {
        const bool isChild = std::ranges::any_of(
            held, [&](const Held& other) { return other.process.id == each.process.parent; });
        if (!isChild) {
            ::syscall(SYS_pidfd_send_signal, each.pidfd.get(), SIGTERM, nullptr, 0);
        }
    }
}

} // namespace

std::vector<RunningProcess> processesOf(WorldContext& context,
                                        const ApplicationStart& application) {
    const Recognition recognition(application, context.user().user);
    std::vector<RunningProcess> found = runningProcesses();
    std::erase_if(found, [&](const RunningProcess& each) { return !recognition.isOne(each); });
    return found;
}

bool quitApplication(WorldContext& context, const ApplicationStart& application,
                     const Deadline& deadline) {
    constexpr std::chrono::milliseconds kForAction{5000};
    constexpr std::chrono::milliseconds kForChildren{2000};
    const std::vector<Held> held = holdProcessesOf(context, application);
    const std::string name =
        application.busName.empty() ? application.identifier : application.busName;
    const bool wasAsked = activateAction(context, name, "quit", deadline.left(kForAction));
    if (held.empty() ||
        (wasAsked && waitForAll(held, Deadline::after(deadline.left(kForAction))))) {
        return true;
    }
    terminate(held);
    if (waitForAll(held, Deadline::after(deadline.left(kForChildren))) || haveEnded(held)) {
        return true;
    }
    // A child that outlived the one that started it is told itself.
    for (const Held& each : held) {
        ::syscall(SYS_pidfd_send_signal, each.pidfd.get(), SIGTERM, nullptr, 0);
    }
    return waitForAll(held, deadline);
}

} // namespace qv::applescript::world
