#include "platform/foundation/process/worker/Worker.h"

#include "platform/foundation/os/Deadline.h"
#include "platform/foundation/os/FileBytes.h"
#include "platform/foundation/os/ProcessIdentity.h"
#include "platform/foundation/process/state/ProcessState.h"
#include "platform/foundation/process/task/Task.h"
#include "platform/foundation/process/worker/Sandbox.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

namespace qv {

namespace {

// The child's exit statuses; its answer counts only after the first.
constexpr int kDone = 0;
constexpr int kNotAllowed = 1;
constexpr int kThrown = 2;

Error failure(int errorNumber) {
    return Error::withDescription(kWorkerErrorDomain, errorNumber, errnoText(errorNumber));
}

// Closes all descriptors but the standard ones and these.
bool closeDescriptorsBut(std::vector<int> kept) {
    std::ranges::sort(kept);
    int first = STDERR_FILENO + 1;
    for (const int each : kept) {
        if (each > first &&
            ::close_range(static_cast<unsigned>(first), static_cast<unsigned>(each) - 1, 0) != 0) {
            return false;
        }
        first = std::max(first, each + 1);
    }
    return ::close_range(static_cast<unsigned>(first), ~0U, 0) == 0;
}

// Becomes the user for good. The parent has looked up the groups, as the child must not lock.
bool becomeUserOf(const Work& work, const std::vector<gid_t>& groups) {
    if (const auto* confinement = std::get_if<Confinement>(&work.as)) {
        return dropPrivileges(confinement->user).empty();
    }
    const auto& user = std::get<UserRecord>(work.as);
    const bool isOwn = ::geteuid() == user.user && ::getuid() == user.user;
    return (isOwn && user.user != 0) || becomeUser(user.user, user.group, groups).empty();
}

[[noreturn]] void beTheWorker(const Work& work, const std::vector<gid_t>& groups, int writingEnd,
                              pid_t parent) {
    const int reply = ::fcntl(writingEnd, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    std::vector<int> kept = work.descriptors;
    kept.push_back(reply);
    if (reply < 0 || !closeDescriptorsBut(std::move(kept))) {
        ::_exit(kNotAllowed);
    }
    sanitizeProcess();
    constexpr mode_t kForOthers = 077;
    ::umask(kForOthers);
    // The change of user makes a process forget the signal, and may make it dumpable.
    if (!becomeUserOf(work, groups) || ::prctl(PR_SET_DUMPABLE, 0) != 0 ||
        ::prctl(PR_SET_PDEATHSIG, SIGKILL) != 0 || ::getppid() != parent ||
        (std::holds_alternative<Confinement>(work.as) && !keepToComputing().empty())) {
        ::_exit(kNotAllowed);
    }
    try {
        const std::string frame = replyFrameOf(work.run(work.input), work.longest);
        ::_exit(writeAll(reply, frame) == 0 ? kDone : kThrown);
    } catch (...) {
        ::_exit(kThrown);
    }
}

// Reads until the last writer has closed.
Error readReply(int descriptor, const Deadline& deadline, ValueFrameReader& into) {
    for (;;) {
        if (deadline.hasPassed()) {
            return failure(ETIMEDOUT);
        }
        pollfd entry{descriptor, POLLIN, 0};
        const int ready = ::poll(&entry, 1, deadline.pollTimeout());
        if (ready == 0) {
            continue;
        }
        std::array<char, 65536> piece; // NOLINT(cppcoreguidelines-pro-type-member-init): read into
        const ssize_t count = ready < 0 ? -1 : ::read(descriptor, piece.data(), piece.size());
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count <= 0) {
            return count == 0 ? Error() : failure(errno);
        }
        if (auto taken = into.take({piece.data(), static_cast<std::size_t>(count)}); !taken) {
            return taken.error();
        }
    }
}

// Returns 0 with the child's status; ETIMEDOUT while it has not ended.
int reap(pid_t pid, int pidfd, const Deadline& deadline, int& status) {
    pollfd entry{pidfd, POLLIN, 0};
    while (::poll(&entry, 1, deadline.pollTimeout()) <= 0 && !deadline.hasPassed()) {
    }
    const pid_t reaped = ::waitpid(pid, &status, WNOHANG);
    return reaped == pid ? 0 : (reaped == 0 ? ETIMEDOUT : errno);
}

// The end of a child: its status, or the errno of what kept it from ending as it should.
struct Ending {
    int lost = 0;
    int status = 0;
    bool isReaped = true; // otherwise the reaper of this process's children has it
};

// Has it end, by force where it does not by itself: that moment is all that one gets which hangs in
// a file system and cannot be killed.
Ending end(pid_t pid, int pidfd, const Deadline& deadline, bool byForce) {
    constexpr std::chrono::milliseconds kForItsEnd{500};
    constexpr std::chrono::milliseconds kLongestWait = std::chrono::hours(1);
    Ending ending{.lost = ETIMEDOUT};
    if (!byForce) {
        const auto time = std::max(kForItsEnd, deadline.left(kLongestWait));
        ending.lost = reap(pid, pidfd, Deadline::after(time), ending.status);
    }
    if (ending.lost == ETIMEDOUT) {
        ::kill(pid, SIGKILL); // it is ours, and not reaped
        const int lost = reap(pid, pidfd, Deadline::after(kForItsEnd), ending.status);
        ending.isReaped = lost != ETIMEDOUT;
        ending.lost = byForce ? lost : ETIMEDOUT;
    }
    return ending;
}

} // namespace

WorkResult resultOf(Error error) {
    return error ? WorkResult(tl::unexpect, std::move(error)) : WorkResult();
}

WorkResult performWork(const Work& work, std::optional<pid_t>* left) {
    const auto* user = std::get_if<UserRecord>(&work.as);
    const std::vector<gid_t> groups = user != nullptr ? groupsOf(*user) : std::vector<gid_t>();
    tl::expected<Pipe, Error> pipe = Pipe::pipe();
    if (!pipe) {
        return tl::unexpected(failure(static_cast<int>(pipe.error().code())));
    }
    const Deadline deadline = Deadline::after(work.patience);
    const pid_t parent = ::getpid();
    const pid_t pid = ::fork();
    if (pid < 0) {
        return tl::unexpected(failure(errno));
    }
    if (pid == 0) {
        beTheWorker(work, groups, pipe->fileHandleForWriting.get(), parent);
    }
    pipe->fileHandleForWriting.reset();
    const Descriptor pidfd = openPidfd(pid);
    ValueFrameReader reply(work.longest);
    Error unread = readReply(pipe->fileHandleForReading.get(), deadline, reply);
    const auto [lost, status, isReaped] =
        end(pid, pidfd.get(), deadline, static_cast<bool>(unread));
    if (!isReaped && left != nullptr) {
        *left = pid;
    }
    if (unread || lost != 0) {
        return tl::unexpected(unread ? std::move(unread) : failure(lost));
    }
    if (WIFEXITED(status) && WEXITSTATUS(status) == kDone) {
        return reply.result();
    }
    return tl::unexpected(
        failure(WIFEXITED(status) && WEXITSTATUS(status) == kNotAllowed ? EPERM : ECHILD));
}

int workerFailure(const Error& error) {
    return error.domain() == kWorkerErrorDomain ? static_cast<int>(error.code()) : 0;
}

} // namespace qv
