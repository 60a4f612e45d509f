#include "platform/foundation/process/worker/UserProcess.h"

#include "platform/foundation/process/state/ProcessState.h"
#include "platform/foundation/process/task/Task.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <grp.h>
#include <linux/capability.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

extern "C" { // the header of glibc 2.36 has no C++ linkage
#include <sys/pidfd.h>
}

namespace qv {

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kResultFd = 3;

// The child's exit statuses; what it says counts only after the first.
constexpr int kDone = 0;
constexpr int kNotAllowed = 1;
constexpr int kThrown = 2;

bool dropCapabilities() {
    __user_cap_header_struct header{.version = _LINUX_CAPABILITY_VERSION_3, .pid = 0};
    const std::array<__user_cap_data_struct, _LINUX_CAPABILITY_U32S_3> none{};
    return ::syscall(SYS_capset, &header, none.data()) == 0;
}

// For good: with the saved IDs, so that nothing that happens in the child can take it back.
bool become(const UserRecord& user, const std::vector<gid_t>& groups) {
    const bool isOwn = ::geteuid() == user.user && ::getuid() == user.user;
    if (isOwn && user.user != 0) {
        return true;
    }
    if (::setgroups(groups.size(), groups.data()) != 0 ||
        ::setresgid(user.group, user.group, user.group) != 0 ||
        ::setresuid(user.user, user.user, user.user) != 0) {
        return false;
    }
    uid_t real = 0;
    uid_t effective = 0;
    uid_t saved = 0;
    return ::getresuid(&real, &effective, &saved) == 0 && real == user.user &&
           effective == user.user && saved == user.user && (user.user == 0 || dropCapabilities());
}

[[noreturn]] void beTheChild(const UserRecord& user, const std::vector<gid_t>& groups, int result,
                             pid_t parent, const std::function<std::string()>& work) {
    if (::dup3(result, kResultFd, O_CLOEXEC) < 0 && errno != EINVAL) { // it may have that number
        ::_exit(kNotAllowed);
    }
    if (::close_range(kResultFd + 1, ~0U, 0) != 0) {
        ::_exit(kNotAllowed);
    }
    sanitizeProcess();
    constexpr mode_t kForOthers = 077;
    ::umask(kForOthers);
    // The change of user makes a process forget the signal, and may make it dumpable.
    if (!become(user, groups) || ::prctl(PR_SET_DUMPABLE, 0) != 0 ||
        ::prctl(PR_SET_PDEATHSIG, SIGKILL) != 0 || ::getppid() != parent) {
        ::_exit(kNotAllowed);
    }
    try {
        const std::string said = work();
        for (std::size_t at = 0; at < said.size();) {
            const ssize_t count = ::write(kResultFd, said.data() + at, said.size() - at);
            if (count < 0 && errno != EINTR) {
                ::_exit(kThrown);
            }
            at += count > 0 ? static_cast<std::size_t>(count) : 0;
        }
    } catch (...) {
        ::_exit(kThrown);
    }
    ::_exit(kDone);
}

// Until the last writer has closed; 0 or the errno.
int readResult(int descriptor, Clock::time_point deadline, std::size_t longest, std::string& into) {
    for (;;) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
        pollfd entry{descriptor, POLLIN, 0};
        const int ready = left.count() > 0 ? ::poll(&entry, 1, static_cast<int>(left.count())) : 0;
        if (ready < 0 && errno == EINTR) {
            continue;
        }
        if (ready <= 0) {
            return ready == 0 ? ETIMEDOUT : errno;
        }
        std::array<char, 16384> piece; // NOLINT(cppcoreguidelines-pro-type-member-init): read into
        const ssize_t count = ::read(descriptor, piece.data(), piece.size());
        if (count < 0 && errno != EINTR) {
            return errno;
        }
        if (count == 0) {
            return 0;
        }
        into.append(piece.data(), count > 0 ? static_cast<std::size_t>(count) : 0);
        if (into.size() > longest) {
            return EOVERFLOW;
        }
    }
}

// 0 with the child's status; ETIMEDOUT while it has not ended.
int reap(pid_t pid, int pidfd, Clock::time_point deadline, int& status) {
    pollfd entry{pidfd, POLLIN, 0};
    int ready = 0;
    do { // a signal must not cut the wait short
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
        ready = ::poll(&entry, 1, static_cast<int>(std::max(left.count(), 0L)));
    } while (ready < 0 && errno == EINTR);
    const pid_t reaped = ::waitpid(pid, &status, WNOHANG);
    return reaped == pid ? 0 : (reaped == 0 ? ETIMEDOUT : errno);
}

// The end of a child: its status, or the errno of what kept it from ending as it should.
struct Ending {
    int lost = 0;
    int status = 0;
    bool isReaped = true; // else the reaper of this process's children has it
};

// Has it end, by force where it does not by itself: that moment is all that one gets which hangs in
// a file system and cannot be killed.
Ending end(pid_t pid, int pidfd, Clock::time_point deadline, bool byForce) {
    constexpr std::chrono::milliseconds kForItsEnd{500};
    Ending ending{.lost = ETIMEDOUT};
    if (!byForce) {
        ending.lost =
            reap(pid, pidfd, std::max(deadline, Clock::now() + kForItsEnd), ending.status);
    }
    if (ending.lost == ETIMEDOUT) {
        ::kill(pid, SIGKILL); // it is ours, and not reaped
        const int lost = reap(pid, pidfd, Clock::now() + kForItsEnd, ending.status);
        ending.isReaped = lost != ETIMEDOUT;
        ending.lost = byForce ? lost : ETIMEDOUT;
    }
    return ending;
}

tl::unexpected<Error> failure(int errorNumber) { return tl::unexpected(Error::posix(errorNumber)); }

// `left`: the child, if it has not ended.
tl::expected<std::string, Error> perform(const UserRecord& user,
                                         const std::function<std::string()>& work,
                                         std::chrono::milliseconds patience, std::size_t longest,
                                         std::optional<pid_t>& left) {
    const std::vector<gid_t> groups = groupsOf(user); // the child must not ask: it may not lock
    tl::expected<Pipe, Error> pipe = Pipe::pipe();
    if (!pipe) {
        return tl::unexpected(pipe.error());
    }
    const Clock::time_point deadline = Clock::now() + patience;
    const pid_t parent = ::getpid();
    const pid_t pid = ::fork();
    if (pid < 0) {
        return failure(errno);
    }
    if (pid == 0) {
        beTheChild(user, groups, pipe->fileHandleForWriting.get(), parent, work);
    }
    pipe->fileHandleForWriting.reset();
    const Descriptor pidfd(::pidfd_open(pid, 0));
    std::string said;
    const int unread = readResult(pipe->fileHandleForReading.get(), deadline, longest, said);
    const auto [lost, status, isReaped] = end(pid, pidfd.get(), deadline, unread != 0);
    if (!isReaped) {
        left = pid;
    }
    if (unread != 0 || lost != 0) {
        return failure(unread != 0 ? unread : lost);
    }
    if (WIFEXITED(status) && WEXITSTATUS(status) == kDone) {
        return said;
    }
    return failure(WIFEXITED(status) && WEXITSTATUS(status) == kNotAllowed ? EPERM : ECHILD);
}

} // namespace

tl::expected<std::string, Error> performAsUser(const UserRecord& user,
                                               const std::function<std::string()>& work,
                                               std::chrono::milliseconds patience,
                                               std::size_t longest) {
    std::optional<pid_t> left;
    return perform(user, work, patience, longest, left);
}

tl::expected<std::string, Error> UserProcesses::perform(const UserRecord& user,
                                                        const std::function<std::string()>& work,
                                                        const Bounds& bounds) {
    const uid_t answerable = bounds.onBehalfOf.value_or(user.user);
    if (hasHanging(answerable)) {
        return failure(EBUSY);
    }
    std::optional<pid_t> left;
    auto said = qv::perform(user, work, bounds.patience, bounds.longest, left);
    if (left) {
        hanging_.push_back({.user = answerable, .process = *left});
    }
    if (!said && said.error().code() == ETIMEDOUT) {
        noteLate(answerable);
    }
    return said;
}

bool UserProcesses::hasHanging(uid_t user) {
    std::erase_if(hanging_, [](const Hanging& each) {
        return ::waitpid(each.process, nullptr, WNOHANG) != 0; // 0: it still hangs
    });
    return std::ranges::find(hanging_, user, &Hanging::user) != hanging_.end();
}

std::chrono::milliseconds UserProcesses::patienceWith(uid_t user,
                                                      std::chrono::milliseconds usual) const {
    const bool wasLate = std::ranges::find(late_, user) != late_.end();
    return wasLate ? std::min(usual, kLeastPatience) : usual;
}

void UserProcesses::noteLate(uid_t user) {
    noteAnswer(user);
    late_.push_back(user);
    if (late_.size() > kMostLate) {
        late_.pop_front();
    }
}

void UserProcesses::noteAnswer(uid_t user) { std::erase(late_, user); }

} // namespace qv
