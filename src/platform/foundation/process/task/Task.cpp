#include "platform/foundation/process/task/Task.h"

#include "platform/foundation/os/FileBytes.h"
#include "platform/foundation/os/ProcessIdentity.h"
#include "platform/foundation/process/state/UserRecord.h"
#include "platform/foundation/process/task/SpawnProcess.h"
#include "platform/foundation/values/Exception.h"

#include <fmt/core.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <string_view>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

namespace qv {

namespace {

[[noreturn]] void refuse(std::string reason) {
    throw Exception(std::string(exception_name::kInvalidArgument), std::move(reason));
}

[[noreturn]] void refuseLaunch(const std::string& path, int errorNumber) {
    refuse(fmt::format("launch path not accessible: {}: {}", path, strerrordesc_np(errorNumber)));
}

// Refuses what a look at the file can tell beforehand, with this class's own words.
void checkLaunchPath(const std::string& path) {
    if (path.empty()) {
        refuse("launch path not set");
    }
    if (!path.starts_with('/')) {
        refuse(fmt::format("launch path not absolute: {}", path));
    }
    struct stat info{};
    if (::stat(path.c_str(), &info) != 0) {
        refuseLaunch(path, errno);
    }
    if (S_ISDIR(info.st_mode)) {
        refuseLaunch(path, EISDIR);
    }
    if (!S_ISREG(info.st_mode)) {
        refuse(fmt::format("launch path not accessible: {}: Not a regular file", path));
    }
    if (::faccessat(AT_FDCWD, path.c_str(), X_OK, AT_EACCESS) != 0) {
        refuseLaunch(path, errno);
    }
}

void refuseNUL(std::string_view text, std::string_view what) {
    if (text.find('\0') != std::string_view::npos) {
        refuse(fmt::format("{} holds a NUL byte", what));
    }
}

// Moves a descriptor out of the way of 0, 1 and 2, which are filled one after the other.
Descriptor aboveStandard(Descriptor fd) {
    if (!fd || fd.get() >= kFirstPrivateFd) {
        return fd;
    }
    Descriptor moved(::fcntl(fd.get(), F_DUPFD_CLOEXEC, kFirstPrivateFd));
    if (!moved) {
        refuse(fmt::format("descriptor {} cannot be given to a tool: {}", fd.get(),
                           strerrordesc_np(errno)));
    }
    return moved;
}

} // namespace

// The environment is fixed, because the variables that this process inherited come from its
// starter.
std::vector<std::string> toolEnvironment() {
    const uid_t uid = ::geteuid();
    const UserRecord user = userRecord(uid).value_or(UserRecord{.user = uid,
                                                                .group = ::getegid(),
                                                                .name = fmt::format("{}", uid),
                                                                .home = "/",
                                                                .shell = ""});
    return {
        "PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin",
        "LANG=C.UTF-8",
        "HOME=" + user.home,
        "USER=" + user.name,
        "LOGNAME=" + user.name,
        "SHELL=/bin/sh",
    };
}

tl::expected<Pipe, Error> Pipe::pipe() {
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0) {
        return tl::unexpected(Error::posix(errno));
    }
    return Pipe{Descriptor(ends[0]), Descriptor(ends[1])};
}

// The signal is sent to the thread that writes. One that was pending before is left to the process.
int writeToPipe(int pipe, std::string_view bytes) noexcept {
    sigset_t broken{};
    sigset_t before{};
    sigset_t pending{};
    ::sigemptyset(&broken);
    ::sigaddset(&broken, SIGPIPE);
    ::sigpending(&pending);
    ::pthread_sigmask(SIG_BLOCK, &broken, &before);
    const int failure = writeAll(pipe, bytes);
    if (failure == EPIPE && ::sigismember(&pending, SIGPIPE) == 0) {
        constexpr timespec kAtOnce{};
        ::sigtimedwait(&broken, nullptr, &kAtOnce);
    }
    ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return failure;
}

Task::~Task() {
    if (state_ == State::running && isUnreaped()) {
        ::kill(-pid_, SIGKILL);
        static_cast<void>(reap()); // nobody is left to be told of a failure
    }
}

void Task::setLaunchPath(std::string path) {
    refuseNUL(path, "launch path");
    launchPath_ = std::move(path);
}

void Task::setArguments(std::vector<std::string> arguments) {
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        refuseNUL(arguments[i], fmt::format("argument {}", i));
    }
    arguments_ = std::move(arguments);
}

void Task::setStandardInput(Descriptor fd) { standard_[0] = aboveStandard(std::move(fd)); }
void Task::setStandardOutput(Descriptor fd) { standard_[1] = aboveStandard(std::move(fd)); }
void Task::setStandardError(Descriptor fd) { standard_[2] = aboveStandard(std::move(fd)); }

void Task::launch() {
    if (state_ != State::notLaunched) {
        refuse("task already launched");
    }
    checkLaunchPath(launchPath_);
    spawn();
    state_ = State::running;
    pidfd_ = openPidfd(pid_);
    for (Descriptor& fd : standard_) {
        fd.reset();
    }
}

void Task::spawn() {
    SpawnRequest request{.program = launchPath_,
                         .words = arguments_,
                         .environment = toolEnvironment(),
                         .directory = "/",
                         .standard = {standard_[0].get(), standard_[1].get(), standard_[2].get()},
                         .leads = SpawnRequest::Leads::processGroup};
    request.words.insert(request.words.begin(), launchPath_);
    const auto spawned = spawnProcess(std::move(request));
    if (spawned) {
        pid_ = *spawned;
        return;
    }
    const int errorNumber = spawned.error().errorNumber;
    if (spawned.error().when == SpawnFailure::While::preparing) {
        refuse(fmt::format("launch cannot be prepared: {}", strerrordesc_np(errorNumber)));
    }
    if (errorNumber == ENOENT) { // the file itself has just been seen
        refuse(fmt::format("launch path not accessible: {}: its interpreter: {}", launchPath_,
                           strerrordesc_np(errorNumber)));
    }
    refuseLaunch(launchPath_, errorNumber);
}

// Returns 0 or the errno.
int Task::wait(int options, siginfo_t& info) const noexcept {
    const idtype_t type = pidfd_ ? P_PIDFD : P_PID;
    const auto id = static_cast<id_t>(pidfd_ ? pidfd_.get() : pid_);
    while (::waitid(type, id, &info, WEXITED | options) != 0) {
        if (errno != EINTR) {
            return errno;
        }
    }
    return 0;
}

// Returns false when the process ID may belong to another process by now.
bool Task::isUnreaped() const noexcept {
    siginfo_t info{};
    return wait(WNOHANG | WNOWAIT, info) == 0;
}

// Waits and takes the status; 0 or the errno.
int Task::reap() noexcept {
    siginfo_t info{};
    if (const int failure = wait(0, info); failure != 0) {
        state_ = State::lost;
        return failure;
    }
    reason_ =
        info.si_code == CLD_EXITED ? TerminationReason::exit : TerminationReason::uncaughtSignal;
    status_ = info.si_status;
    state_ = State::ended;
    pidfd_.reset();
    return 0;
}

void Task::waitUntilExit() {
    if (state_ == State::notLaunched) {
        refuse("task not launched");
    }
    if (state_ != State::running) {
        return;
    }
    if (const int status = reap(); status != 0) {
        throw Exception("NSInternalInconsistencyException",
                        fmt::format("the exit status of {} (process {}) is lost: {}", launchPath_,
                                    pid_, strerrordesc_np(status)));
    }
}

void Task::requireEnded() const {
    switch (state_) {
    case State::notLaunched:
        refuse("task not launched");
    case State::running:
        refuse("task still running");
    case State::lost:
        refuse("the task's exit status is lost");
    case State::ended:
        return;
    }
}

TerminationReason Task::terminationReason() const {
    requireEnded();
    return reason_;
}

int Task::terminationStatus() const {
    requireEnded();
    return status_;
}

} // namespace qv
