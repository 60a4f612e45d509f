#include "platform/xpc/Peer.h"

#include "platform/foundation/os/ProcessText.h"
#include "platform/xpc/wire/WireError.h"

#include <fmt/core.h>

#include <cerrno>
#include <ctime>
#include <fcntl.h>
#include <string>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

namespace qv::xpc {

namespace {

constexpr int kPeerPidfd = 77; // SO_PEERPIDFD, Linux 6.5; the C library's headers are older
constexpr std::size_t kLongestText = 4096;

tl::unexpected<Error> unknown(std::string_view why) {
    return tl::unexpected(wireError(WireErrorCode::noIdentity, why));
}

std::string textOf(int folder, const std::string& path) {
    const Descriptor file(::openat(folder, path.c_str(), O_RDONLY | O_CLOEXEC));
    std::string text(kLongestText, '\0');
    const ssize_t count = file ? ::read(file.get(), text.data(), text.size()) : -1;
    text.resize(count < 0 ? 0 : static_cast<std::size_t>(count));
    return text;
}

std::uint64_t ticksNow() {
    timespec now{};
    ::clock_gettime(CLOCK_BOOTTIME, &now);
    const auto ticksPerSecond = static_cast<std::uint64_t>(::sysconf(_SC_CLK_TCK));
    const auto nanoseconds = static_cast<std::uint64_t>(now.tv_nsec);
    return (static_cast<std::uint64_t>(now.tv_sec) * ticksPerSecond) +
           (nanoseconds * ticksPerSecond / 1'000'000'000U);
}

tl::expected<ucred, Error> credentialsOf(int socket) {
    ucred credentials{};
    socklen_t size = sizeof credentials;
    if (::getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &credentials, &size) != 0) {
        return tl::unexpected(Error::posix(errno));
    }
    if (size != sizeof credentials || credentials.pid <= 0) {
        return unknown("the socket names no peer process");
    }
    return credentials;
}

ProcessIdentity::Shared identityOf(const ucred& credentials, Descriptor pidfd) {
    return std::make_shared<const ProcessIdentity>(
        credentials.pid, std::move(pidfd),
        PeerCredentials{.user = credentials.uid, .group = credentials.gid});
}

tl::unexpected<Error> ended(pid_t peer) {
    return unknown(fmt::format("the peer, process {}, has ended", peer));
}

} // namespace

std::optional<uid_t> userOfPeer(int socket) {
    const auto credentials = credentialsOf(socket);
    return credentials ? std::optional(credentials->uid) : std::nullopt;
}

tl::expected<Peer, Error> peerOf(int socket) {
    const auto credentials = credentialsOf(socket);
    if (!credentials) {
        return tl::unexpected(credentials.error());
    }
    int fd = -1;
    socklen_t size = sizeof fd;
    if (::getsockopt(socket, SOL_SOCKET, kPeerPidfd, &fd, &size) != 0) {
        if (errno == ENOPROTOOPT) {
            return peerByPID(socket);
        }
        return tl::unexpected(Error::posix(errno));
    }
    Descriptor pidfd(fd);
    if (parsePidfdInfo(textOf(AT_FDCWD, fmt::format("/proc/self/fdinfo/{}", fd))) !=
        credentials->pid) {
        return ended(credentials->pid);
    }
    return Peer{.process = identityOf(*credentials, std::move(pidfd))};
}

tl::expected<Peer, Error> peerByPID(int socket) {
    const std::uint64_t latestStart = ticksNow();
    const auto credentials = credentialsOf(socket);
    if (!credentials) {
        return tl::unexpected(credentials.error());
    }
    Descriptor pidfd = openPidfd(credentials->pid);
    if (!pidfd) {
        return tl::unexpected(Error::posix(errno));
    }
    Peer peer{.process = identityOf(*credentials, std::move(pidfd)), .isFoundByPID = true};
    const auto folder = peer.process->openFolder();
    if (!folder) {
        return ended(credentials->pid);
    }
    if (const auto start = parseStartTime(textOf(folder->get(), "stat"));
        !start || *start > latestStart) {
        return unknown(fmt::format("process {} is younger than its connection", credentials->pid));
    }
    return peer;
}

} // namespace qv::xpc
