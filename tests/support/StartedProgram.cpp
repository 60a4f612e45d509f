#include "support/StartedProgram.h"

#include <cerrno>
#include <charconv>
#include <csignal>
#include <fcntl.h>
#include <linux/sched.h>
#include <poll.h>
#include <stdexcept>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

namespace qv::test {

namespace {

constexpr int kFirstHandedOver = 3;
constexpr std::string_view kPidVariable = "LISTEN_PID=";
constexpr std::size_t kLongestPid = 20;

[[noreturn]] void fail(const char* what) {
    throw std::system_error(errno, std::generic_category(), what);
}

// Everything that the child needs, made before the fork: it may not allocate.
class ChildImage {
public:
    explicit ChildImage(const ProgramStart& start)
        : words_(start.command), variables_(start.environment), standard_(start.standard),
          listener_(start.listener), user_(start.user),
          group_(start.group.value_or(start.user.value_or(0))),
          null_(::open("/dev/null", O_RDWR | O_CLOEXEC)) {
        if (listener_ >= 0) {
            variables_.emplace_back("LISTEN_FDS=1");
            variables_.push_back("LISTEN_FDNAMES=" + start.listenerName);
            variables_.push_back(std::string(kPidVariable).append(kLongestPid, '\0'));
        }
        for (int& fd : standard_) {
            fd = fd < 0 ? null_.get() : fd;
        }
        for (std::string& word : words_) {
            arguments_.push_back(word.data());
        }
        arguments_.push_back(nullptr);
        for (std::string& variable : variables_) {
            environment_.push_back(variable.data());
        }
        environment_.push_back(nullptr);
    }

    [[noreturn]] void become(pid_t parent) {
        bool ready = !user_ || becomeUser();
        ::prctl(PR_SET_PDEATHSIG, SIGKILL); // a change of user takes this away
        ready = ready && ::getppid() == parent;
        for (int number = 0; number < kFirstHandedOver; ++number) {
            ready = ready && place(standard_.at(static_cast<std::size_t>(number)), number);
        }
        if (listener_ >= 0) {
            ready = ready && place(listener_, kFirstHandedOver);
            char* digits = variables_.back().data() + kPidVariable.size();
            std::to_chars(digits, digits + kLongestPid, ::getpid());
        }
        if (ready) {
            ::execve(arguments_[0], arguments_.data(), environment_.data());
        }
        ::_exit(127);
    }

private:
    // The places come in ascending order: a source that a later place would overwrite has been
    // placed by then.
    static bool place(int fd, int number) {
        return fd == number ? ::fcntl(fd, F_SETFD, 0) == 0 : ::dup2(fd, number) == number;
    }

    // The calls themselves: the library may not know of this child.
    [[nodiscard]] bool becomeUser() const {
        return ::setpgid(0, 0) == 0 && ::syscall(SYS_setgroups, 0, nullptr) == 0 &&
               ::syscall(SYS_setresgid, group_, group_, group_) == 0 &&
               ::syscall(SYS_setresuid, *user_, *user_, *user_) == 0;
    }

    std::vector<std::string> words_;
    std::vector<std::string> variables_;
    std::array<int, 3> standard_;
    int listener_;
    std::optional<uid_t> user_;
    gid_t group_;
    Descriptor null_;
    std::vector<char*> arguments_;
    std::vector<char*> environment_;
};

pid_t forkFor(const ProgramStart& start) {
    if (start.pid == 0 && !start.userNamespace) {
        return ::fork();
    }
    clone_args arguments{};
    arguments.exit_signal = SIGCHLD;
    arguments.flags = start.userNamespace ? CLONE_NEWUSER : 0;
    arguments.set_tid = start.pid != 0 ? reinterpret_cast<std::uintptr_t>(&start.pid) : 0;
    arguments.set_tid_size = start.pid != 0 ? 1 : 0;
    return static_cast<pid_t>(::syscall(SYS_clone3, &arguments, sizeof arguments));
}

int statusOf(const siginfo_t& info) {
    return info.si_code == CLD_EXITED ? info.si_status : -info.si_status;
}

} // namespace

StartedProgram::StartedProgram(const ProgramStart& start) : ownGroup_(start.user) {
    ChildImage image(start);
    const pid_t parent = ::getpid();
    pid_ = forkFor(start);
    if (pid_ < 0) {
        fail("fork");
    }
    if (pid_ == 0) {
        image.become(parent);
    }
    if (ownGroup_) {
        ::setpgid(pid_, pid_); // both processes do this, the first one counts
    }
    pidfd_ = Descriptor(static_cast<int>(::syscall(SYS_pidfd_open, pid_, 0)));
    if (!pidfd_) {
        fail("pidfd_open");
    }
}

StartedProgram::~StartedProgram() {
    if (!status_) {
        kill();
        siginfo_t info{};
        ::waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED);
    }
}

bool StartedProgram::isRunning() const { return !hasEndedWithin({}); }

void StartedProgram::kill() const {
    if (!status_) {
        ::kill(ownGroup_ ? -pid_ : pid_, SIGKILL);
    }
}

bool StartedProgram::hasEndedWithin(std::chrono::milliseconds time) const {
    pollfd entry{.fd = pidfd_.get(), .events = POLLIN, .revents = 0};
    return ::poll(&entry, 1, static_cast<int>(time.count())) == 1;
}

std::optional<int> StartedProgram::wait() {
    if (!status_ && waitForEnd()) {
        if (ownGroup_) {
            kill(); // the number of its group is its own until it is reaped
        }
        siginfo_t info{};
        if (::waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED) != 0) {
            fail("waitid");
        }
        status_ = statusOf(info);
    }
    return status_;
}

PipeEnds makePipe() {
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0) {
        fail("pipe");
    }
    return {.read = Descriptor(ends[0]), .write = Descriptor(ends[1])};
}

Descriptor listenAt(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(static_cast<char*>(address.sun_path), sizeof address.sun_path - 1);
    Descriptor fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (path.size() >= sizeof address.sun_path || !fd ||
        ::bind(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        ::chmod(path.c_str(), 0666) != 0 || ::listen(fd.get(), SOMAXCONN) != 0) {
        fail(path.c_str());
    }
    return fd;
}

bool writeAll(int descriptor, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t count = ::write(descriptor, bytes.data(), bytes.size());
        if (count < 0 && errno != EINTR) {
            return false;
        }
        bytes.remove_prefix(count < 0 ? 0 : static_cast<std::size_t>(count));
    }
    return true;
}

namespace {

void readBoth(int output, int errors, ProgramRun& run) {
    std::array<pollfd, 2> entries{{{output, POLLIN, 0}, {errors, POLLIN, 0}}};
    const std::array<std::string*, 2> texts{&run.output, &run.errors};
    std::array<char, 65536> piece{};
    constexpr auto kMost = static_cast<int>(std::chrono::milliseconds(kPatience).count());
    while ((entries[0].fd >= 0 || entries[1].fd >= 0) && ::poll(entries.data(), 2, kMost) > 0) {
        for (std::size_t i = 0; i < entries.size(); ++i) {
            const ssize_t count =
                entries[i].revents != 0 ? ::read(entries[i].fd, piece.data(), piece.size()) : 1;
            if (count <= 0) {
                entries[i].fd = -1; // at its end; not looked at any more
            } else if (entries[i].revents != 0) {
                texts[i]->append(piece.data(), static_cast<std::size_t>(count));
            }
        }
    }
}

} // namespace

ProgramRun runProgram(const std::vector<std::string>& command, std::string_view input,
                      std::vector<std::string> environment) {
    const Descriptor in(::memfd_create("input", MFD_CLOEXEC)); // nobody waits until it is read
    if (!in || !writeAll(in.get(), input) || ::lseek(in.get(), 0, SEEK_SET) != 0) {
        fail("input");
    }
    PipeEnds out = makePipe();
    PipeEnds err = makePipe();
    environment.insert(environment.end(), {"ASAN_OPTIONS=exitcode=99", "UBSAN_OPTIONS=exitcode=99",
                                           "LSAN_OPTIONS=exitcode=99"});
    StartedProgram program({.command = command,
                            .environment = std::move(environment),
                            .standard = {in.get(), out.write.get(), err.write.get()}});
    out.write.reset();
    err.write.reset();
    ProgramRun run;
    readBoth(out.read.get(), err.read.get(), run);
    run.status = program.wait().value_or(-SIGKILL);
    return run;
}

} // namespace qv::test
