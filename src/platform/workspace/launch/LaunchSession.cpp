#include "platform/workspace/launch/LaunchSession.h"

#include "platform/foundation/os/Descriptor.h"
#include "platform/foundation/os/ProcessText.h"
#include "platform/foundation/values/UTF8.h"
#include "platform/workspace/applications/Patience.h"

#include <fmt/core.h>
#include <systemd/sd-login.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <memory>
#include <optional>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

namespace qv {

namespace {

constexpr std::size_t kLongestEnvironment = std::size_t{256} << 10U;
constexpr std::size_t kLongestVariable = 4096;

struct FreeDeleter {
    void operator()(char* text) const noexcept {
        std::free(text); // NOLINT(*-no-malloc,*-owning-memory): the library says so
    }
};
using Text = std::unique_ptr<char, FreeDeleter>;

// The variables that a session gives. Nothing that has programs load or look for other files than
// they would.
constexpr std::string_view kRuntimeFolder = "XDG_RUNTIME_DIR";
constexpr std::string_view kBusAddress = "DBUS_SESSION_BUS_ADDRESS";
constexpr std::array<std::string_view, 14> kSessionVariables = {
    kRuntimeFolder,
    kBusAddress,
    "DISPLAY",
    "WAYLAND_DISPLAY",
    "XAUTHORITY",
    "XDG_SESSION_ID",
    "XDG_SESSION_TYPE",
    "XDG_CURRENT_DESKTOP",
    "XDG_SESSION_DESKTOP",
    "XDG_SESSION_CLASS",
    "XDG_SEAT",
    "XDG_VTNR",
    "LANG",
    "LANGUAGE",
};

std::string_view nameOf(std::string_view variable) {
    return variable.substr(0, variable.find('='));
}

// An address of another kind has the connecting process execute a program.
bool namesSocketsOnly(std::string_view busAddresses) {
    while (busAddresses.starts_with("unix:")) {
        const std::size_t end = busAddresses.find(';');
        if (end == std::string_view::npos) {
            return true;
        }
        busAddresses.remove_prefix(end + 1);
    }
    return false;
}

bool isOfSession(std::string_view variable) {
    const std::string_view name = nameOf(variable);
    return name.size() < variable.size() && variable.size() <= kLongestVariable &&
           isUTF8(variable) &&
           (name != kBusAddress || namesSocketsOnly(variable.substr(name.size() + 1))) &&
           (std::ranges::find(kSessionVariables, name) != kSessionVariables.end() ||
            name.starts_with("LC_"));
}

std::string contentOf(int folder, const char* name) {
    const Descriptor file(::openat(folder, name, O_RDONLY | O_CLOEXEC));
    std::string content;
    std::array<char, 4096> piece{};
    ssize_t count = 0;
    while (file && content.size() < kLongestEnvironment &&
           (count = ::read(file.get(), piece.data(), piece.size())) > 0) {
        content.append(piece.data(), static_cast<std::size_t>(count));
    }
    return content;
}

// The environment of a process if the user wrote it: that is its real user, whatever it may do
// besides.
std::string environmentOf(const ProcessIdentity& process, uid_t user) {
    const auto folder = process.openFolder();
    if (!folder) {
        return {};
    }
    const auto status = parseProcessStatus(contentOf(folder->get(), "status"));
    return status && status->realUser == user ? contentOf(folder->get(), "environ") : std::string();
}

// Another process of the same rights reads them: the kernel lets the reader wait while their owner
// executes another program, for as long as he likes.
std::vector<std::string> variablesOf(const ProcessIdentity& process, uid_t user,
                                     UserProcesses& processes) {
    const WorkResult read =
        processes.perform(user, {.as = userRecord(::geteuid()).value_or(UserRecord()),
                                 .run = [&](const Value& /*input*/) -> WorkResult {
                                     return Value::data(environmentOf(process, user));
                                 },
                                 .patience = processes.patienceWith(user, kPatienceToLook),
                                 .longest = 2 * kLongestEnvironment,
                                 .descriptors = {process.pidfd()}});
    const std::string_view all = read && read->is(Value::Kind::data) ? read->asData() : "";
    std::vector<std::string> variables;
    for (std::size_t at = 0; at < all.size();) {
        const std::size_t end = std::min(all.find('\0', at), all.size());
        if (const std::string_view each = all.substr(at, end - at); isOfSession(each)) {
            variables.emplace_back(each);
        }
        at = end + 1;
    }
    return variables;
}

std::vector<std::string> variablesOfSession(const char* session) {
    std::vector<std::string> variables = {fmt::format("XDG_SESSION_ID={}", session)};
    const auto add = [&](const char* name, int (*ask)(const char*, char**)) {
        char* answer = nullptr;
        if (ask(session, &answer) >= 0) {
            variables.push_back(fmt::format("{}={}", name, answer));
        }
        const Text owner(answer);
    };
    add("DISPLAY", ::sd_session_get_display);
    add("XDG_SESSION_TYPE", ::sd_session_get_type);
    add("XDG_SESSION_CLASS", ::sd_session_get_class);
    add("XDG_SESSION_DESKTOP", ::sd_session_get_desktop);
    add("XDG_SEAT", ::sd_session_get_seat);
    std::erase_if(variables, [](const std::string& each) { return !isOfSession(each); });
    return variables;
}

Text sessionOfProcess(pid_t pid) {
    char* session = nullptr;
    return ::sd_pid_get_session(pid, &session) >= 0 ? Text(session) : nullptr;
}

// The one at the screen, for the display that it has.
Text displaySessionOf(uid_t user) {
    char* session = nullptr;
    return ::sd_uid_get_display(user, &session) >= 0 ? Text(session) : nullptr;
}

// The user for whom a process of root acts.
uid_t userBehindRoot(pid_t pid) {
    uid_t owner = 0;
    if (::sd_pid_get_owner_uid(pid, &owner) >= 0) {
        return owner;
    }
    if (!sessionOfProcess(pid) && ::sd_seat_get_active("seat0", nullptr, &owner) >= 0) {
        return owner;
    }
    return 0;
}

// The first of a name counts.
void addVariables(std::vector<std::string>& to, std::vector<std::string> from) {
    for (std::string& each : from) {
        if (std::ranges::none_of(
                to, [&](const std::string& known) { return nameOf(known) == nameOf(each); })) {
            to.push_back(std::move(each));
        }
    }
}

// Takes a variable out: it is known better, or told in another way.
void settle(std::vector<std::string>& variables, std::string_view name, std::string& known) {
    const auto place = std::ranges::find(variables, name, nameOf);
    if (place == variables.end()) {
        return;
    }
    if (known.empty()) {
        known = place->substr(name.size() + 1);
    }
    variables.erase(place);
}

bool isThere(const std::string& path) {
    struct stat info{};
    return ::stat(path.c_str(), &info) == 0;
}

constexpr const char* kBus = "/bus";
constexpr const char* kManagerPlace = "/systemd/private";

// Gives the parts of a user's runtime folder that exist, "" for itself. The user may have mounted
// anything in it.
WorkResult lookIntoRuntimeFolder(const Value& input) {
    const std::string folder(input.asData());
    std::vector<Value> found;
    for (const char* const part : {"", kBus, kManagerPlace}) {
        if (isThere(folder + part)) {
            found.push_back(Value::string(part));
        }
    }
    return Value::array(std::move(found));
}

// Finds the manager that starts programs there, and its socket.
void findManager(LaunchSession& session, bool hasOwn, const std::string& runFolder) {
    if (hasOwn) {
        session.manager = LaunchSession::Manager::user;
        session.managerSocket = session.runtimeFolder + kManagerPlace;
    } else if (::geteuid() == 0 && isThere(runFolder + kManagerPlace)) {
        session.manager = LaunchSession::Manager::system;
        session.managerSocket = runFolder + kManagerPlace;
    }
}

} // namespace

std::vector<std::string> LaunchSession::environment() const {
    std::vector<std::string> all = {
        user.user == 0 ? "PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin"
                       : "PATH=/usr/local/bin:/usr/bin:/bin:/usr/local/games:/usr/games",
        "HOME=" + user.home,
        "USER=" + user.name,
        "LOGNAME=" + user.name,
        "SHELL=" + (user.shell.empty() ? "/bin/sh" : user.shell),
    };
    if (!runtimeFolder.empty()) {
        all.push_back("XDG_RUNTIME_DIR=" + runtimeFolder);
    }
    if (!busAddress.empty()) {
        all.push_back("DBUS_SESSION_BUS_ADDRESS=" + busAddress);
    }
    all.insert(all.end(), variables.begin(), variables.end());
    if (std::ranges::none_of(variables, [](const std::string& each) {
            return each.starts_with("LANG=") || each.starts_with("LC_ALL=");
        })) {
        all.emplace_back("LANG=C.UTF-8");
    }
    return all;
}

tl::expected<LaunchSession, std::string> findLaunchSession(const ProcessIdentity::Shared& requester,
                                                           UserProcesses& processes,
                                                           const std::string& runFolder) {
    const uid_t uid = requester->user() == 0 ? userBehindRoot(requester->pid()) : requester->user();
    std::optional<UserRecord> user = userRecord(uid);
    if (!user) {
        return tl::unexpected(fmt::format("user {} is not in the user database", uid));
    }
    LaunchSession session;
    session.user = std::move(*user);
    const std::string folder = fmt::format("{}/user/{}", runFolder, uid);
    const WorkResult found =
        processes.perform(uid, {.as = session.user,
                                .run = lookIntoRuntimeFolder,
                                .input = Value::data(folder),
                                .patience = processes.patienceWith(uid, kPatienceToLook)});
    if (!found) {
        return tl::unexpected(fmt::format("{} cannot be looked into: {}", folder,
                                          whyNotPerformed(session.user, found.error())));
    }
    const auto has = [&](std::string_view part) {
        return found->is(Value::Kind::array) &&
               std::ranges::find(found->asArray(), Value::string(part)) != found->asArray().end();
    };
    session.runtimeFolder = has("") ? folder : "";
    session.busAddress = has(kBus) ? fmt::format("unix:path={}{}", folder, kBus) : "";
    findManager(session, has(kManagerPlace), runFolder);
    if (uid == requester->user()) {
        addVariables(session.variables, variablesOf(*requester, uid, processes));
    }
    Text named = sessionOfProcess(requester->pid());
    if (!named) {
        named = displaySessionOf(uid);
    }
    if (named) {
        addVariables(session.variables, variablesOfSession(named.get()));
    }
    settle(session.variables, kRuntimeFolder, session.runtimeFolder);
    settle(session.variables, kBusAddress, session.busAddress);
    return session;
}

} // namespace qv
