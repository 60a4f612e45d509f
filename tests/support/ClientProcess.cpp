#include "support/ClientProcess.h"

#include "support/TemporaryDirectory.h"

#include <fcntl.h>
#include <linux/sched.h>
#include <poll.h>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

#ifndef SO_PEERPIDFD
#define SO_PEERPIDFD 77 // since Linux 6.5
#endif

namespace qv::test {

namespace {

constexpr int kDeadline = 20'000; // milliseconds, for what takes none

void require(bool done, const char* what) {
    if (!done) {
        throw std::system_error(errno, std::generic_category(), what);
    }
}

void awaitInput(int fd, const char* what) {
    pollfd entry{.fd = fd, .events = POLLIN, .revents = 0};
    errno = ETIMEDOUT;
    require(::poll(&entry, 1, kDeadline) == 1, what);
}

Descriptor listenAt(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    require(path.copy(static_cast<char*>(address.sun_path), sizeof address.sun_path - 1) ==
                path.size(),
            "socket path");
    Descriptor fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    require(
        fd && ::bind(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
            ::chmod(path.c_str(), 0666) == 0 && ::listen(fd.get(), 1) == 0,
        "listener");
    return fd;
}

std::vector<char*> pointers(std::vector<std::string>& texts) {
    std::vector<char*> result;
    for (std::string& text : texts) {
        result.push_back(text.data());
    }
    result.push_back(nullptr);
    return result;
}

pid_t forkAs(const ClientProcess::Options& options) {
    pid_t wanted = options.pid.value_or(0);
    clone_args arguments{};
    arguments.exit_signal = SIGCHLD;
    arguments.flags = options.userNamespace ? CLONE_NEWUSER : 0;
    if (options.pid) {
        arguments.set_tid = reinterpret_cast<std::uintptr_t>(&wanted);
        arguments.set_tid_size = 1;
    }
    return static_cast<pid_t>(::syscall(SYS_clone3, &arguments, sizeof arguments));
}

} // namespace

ClientProcess::Options ClientProcess::Options::asNobody(const std::filesystem::path& program) {
    Options options;
    options.program = program;
    options.user = kNobody;
    options.group = kNobody;
    return options;
}

ClientProcess::ClientProcess(const Options& options) {
    const TemporaryDirectory folder;
    require(::chmod(folder.path().c_str(), 0755) == 0, "folder");
    const Descriptor listener = listenAt(folder / "socket");
    std::vector<std::string> arguments{options.program, folder / "socket", options.file};
    std::vector<std::string> environment = options.environment;
    const std::vector<char*> argv = pointers(arguments);
    const std::vector<char*> envp = pointers(environment);

    pid_ = forkAs(options);
    require(pid_ >= 0, "fork");
    if (pid_ == 0) {
        // The calls themselves: the library does not know of this child.
        if (options.userNamespace ||
            (::syscall(SYS_setresgid, options.group, options.group, options.group) == 0 &&
             ::syscall(SYS_setresuid, options.user, options.user, options.user) == 0)) {
            ::execve(argv[0], argv.data(), envp.data());
        }
        ::_exit(127);
    }
    try {
        awaitInput(listener.get(), "the client does not connect");
        connection_ = Descriptor(::accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC));
        require(static_cast<bool>(connection_), "accept");
        ucred peer{};
        socklen_t size = sizeof peer;
        require(::getsockopt(connection_.get(), SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0 &&
                    peer.pid == pid_,
                "SO_PEERCRED");
        int pidfd = -1;
        size = sizeof pidfd;
        require(::getsockopt(connection_.get(), SOL_SOCKET, SO_PEERPIDFD, &pidfd, &size) == 0,
                "SO_PEERPIDFD");
        identity_ = std::make_shared<const ProcessIdentity>(
            pid_, Descriptor(pidfd), PeerCredentials{.user = peer.uid, .group = peer.gid});
        command('p');
    } catch (...) {
        kill();
        reap();
        throw;
    }
}

ClientProcess::~ClientProcess() {
    if (!reaped_) {
        kill();
        reap();
    }
}

void ClientProcess::command(char letter) const {
    char answer = 0;
    require(::write(connection_.get(), &letter, 1) == 1, "command");
    awaitInput(connection_.get(), "the client does not answer");
    require(::read(connection_.get(), &answer, 1) == 1, "answer");
    if (answer != 'k') {
        throw std::runtime_error(std::string("the client could not ") + letter);
    }
}

void ClientProcess::kill() {
    require(::kill(pid_, SIGKILL) == 0, "kill");
    siginfo_t info{};
    require(::waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED | WNOWAIT) == 0, "wait");
}

void ClientProcess::reap() {
    siginfo_t info{};
    require(::waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED) == 0, "reap");
    reaped_ = true;
}

} // namespace qv::test
