#include "platform/xpc/Peer.h"

#include "platform/foundation/values/Weakness.h"
#include "platform/xpc/wire/WireError.h"

#include <fmt/core.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <ctime>
#include <fcntl.h>
#include <optional>
#include <poll.h>
#include <string>
#include <string_view>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <utility>

namespace qv::xpc {

namespace {

constexpr int kPeerPidfd = 77; // SO_PEERPIDFD, Linux 6.5; the C library's headers are older
constexpr std::size_t kLongestText = 4096;

tl::unexpected<Error> unknown(std::string_view why) {
    return tl::unexpected(wireError(WireErrorCode::noIdentity, why));
}

// A small file of the process file system; empty when it cannot be read.
std::string textOf(const std::string& path) {
    const Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    std::string text(kLongestText, '\0');
    const ssize_t count = file ? ::read(file.get(), text.data(), text.size()) : -1;
    text.resize(count < 0 ? 0 : static_cast<std::size_t>(count));
    return text;
}

template <typename Number> std::optional<Number> leadingNumber(std::string_view text) {
    text.remove_prefix(std::min(text.find_first_not_of(" \t"), text.size()));
    Number number{};
    const auto result = std::from_chars(text.data(), text.data() + text.size(), number);
    return result.ec == std::errc() ? std::optional(number) : std::nullopt;
}

// Which process a pidfd names; -1 for one that is gone altogether.
std::optional<pid_t> pidOf(int pidfd) {
    constexpr std::string_view kLabel = "\nPid:";
    const std::string info = textOf(fmt::format("/proc/self/fdinfo/{}", pidfd));
    const std::size_t place = info.find(kLabel);
    if (place == std::string::npos) {
        return std::nullopt;
    }
    return leadingNumber<pid_t>(std::string_view(info).substr(place + kLabel.size()));
}

// When a process was started, in clock ticks since the machine's start: the 22nd field, counted
// from the last bracket because the name before it may hold anything.
std::optional<std::uint64_t> startTicksOf(pid_t pid) {
    constexpr int kFieldsBetween = 20; // blanks from the bracket to the field
    const std::string info = textOf(fmt::format("/proc/{}/stat", pid));
    std::size_t place = info.rfind(')');
    for (int i = 0; i < kFieldsBetween && place != std::string::npos; ++i) {
        place = info.find(' ', place + 1);
    }
    if (place == std::string::npos) {
        return std::nullopt;
    }
    return leadingNumber<std::uint64_t>(std::string_view(info).substr(place));
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

} // namespace

Peer::Peer(Descriptor pidfd, const PeerCredentials& credentials) noexcept
    : pidfd_(std::move(pidfd)), credentials_(credentials) {}

std::optional<uid_t> Peer::userOfSocket(int socket) {
    const auto credentials = credentialsOf(socket);
    return credentials ? std::optional(credentials->uid) : std::nullopt;
}

tl::expected<Peer, Error> Peer::ofSocket(int socket) {
    const auto credentials = credentialsOf(socket);
    if (!credentials) {
        return tl::unexpected(credentials.error());
    }
    int fd = -1;
    socklen_t size = sizeof fd;
    if (isWeakened(Weakness::peerProcess)) {
        return ofProcess(socket);
    }
    if (::getsockopt(socket, SOL_SOCKET, kPeerPidfd, &fd, &size) != 0) {
        if (errno == ENOPROTOOPT) {
            return ofProcess(socket);
        }
        return tl::unexpected(Error::posix(errno));
    }
    Descriptor pidfd(fd);
    const std::optional<pid_t> named = pidOf(pidfd.get());
    if (named != credentials->pid) {
        return unknown(fmt::format("the peer, process {}, has ended", credentials->pid));
    }
    return Peer(std::move(pidfd), {credentials->pid, credentials->uid, credentials->gid, fd});
}

tl::expected<Peer, Error> Peer::ofProcess(int socket) {
    const std::uint64_t latestStart = ticksNow();
    const auto credentials = credentialsOf(socket);
    if (!credentials) {
        return tl::unexpected(credentials.error());
    }
    // The C library's own function has no C linkage in Debian 12's headers.
    Descriptor pidfd(static_cast<int>(::syscall(SYS_pidfd_open, credentials->pid, 0)));
    if (!pidfd) {
        return tl::unexpected(Error::posix(errno));
    }
    const int fd = pidfd.get();
    Peer peer(std::move(pidfd), {credentials->pid, credentials->uid, credentials->gid, fd});
    peer.fromProcessID_ = true;
    const std::optional<std::uint64_t> start = startTicksOf(credentials->pid);
    if (!peer.isAlive()) { // so what was read was the text of that very process
        return unknown(fmt::format("the peer, process {}, has ended", credentials->pid));
    }
    if (!start || *start > latestStart) {
        return unknown(fmt::format("process {} is younger than its connection", credentials->pid));
    }
    return peer;
}

bool Peer::isAlive() const noexcept {
    pollfd state{pidfd_.get(), POLLIN, 0};
    int result = 0;
    do {
        result = ::poll(&state, 1, 0);
    } while (result < 0 && errno == EINTR);
    return result == 0;
}

} // namespace qv::xpc
