#include "support/ClientProcess.h"

#include "support/TemporaryDirectory.h"

#include <poll.h>
#include <stdexcept>
#include <sys/socket.h>
#include <system_error>
#include <unistd.h>

#ifndef SO_PEERPIDFD
#define SO_PEERPIDFD 77 // since Linux 6.5
#endif

namespace qv::test {

namespace {

void require(bool done, const char* what) {
    if (!done) {
        throw std::system_error(errno, std::generic_category(), what);
    }
}

void awaitInput(int fd, const char* what) {
    pollfd entry{.fd = fd, .events = POLLIN, .revents = 0};
    errno = ETIMEDOUT;
    require(::poll(&entry, 1, std::chrono::milliseconds(kPatience).count()) == 1, what);
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
    std::filesystem::permissions(folder.path(), std::filesystem::perms(0755));
    const Descriptor listener = listenAt(folder / "socket");
    ProgramStart start{.command = {options.program, folder / "socket", options.file},
                       .environment = options.environment,
                       .pid = options.pid.value_or(0),
                       .userNamespace = options.userNamespace};
    if (!options.userNamespace) {
        start.user = options.user;
        start.group = options.group;
    }
    process_ = std::make_unique<StartedProgram>(start);
    awaitInput(listener.get(), "the client does not connect");
    connection_ = Descriptor(::accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC));
    require(static_cast<bool>(connection_), "accept");
    ucred peer{};
    socklen_t size = sizeof peer;
    require(::getsockopt(connection_.get(), SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0 &&
                peer.pid == pid(),
            "SO_PEERCRED");
    int pidfd = -1;
    size = sizeof pidfd;
    require(::getsockopt(connection_.get(), SOL_SOCKET, SO_PEERPIDFD, &pidfd, &size) == 0,
            "SO_PEERPIDFD");
    identity_ = std::make_shared<const ProcessIdentity>(
        pid(), Descriptor(pidfd), PeerCredentials{.user = peer.uid, .group = peer.gid});
    command('p');
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

void ClientProcess::kill() const {
    process_->kill();
    require(process_->waitForEnd(), "the client does not end");
}

} // namespace qv::test
