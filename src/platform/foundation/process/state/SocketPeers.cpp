#include "platform/foundation/process/state/SocketPeers.h"

#include "platform/foundation/os/Descriptor.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <filesystem>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <linux/sock_diag.h>
#include <linux/unix_diag.h>
#include <map>
#include <netinet/tcp.h>
#include <span>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace qv {

namespace {

using INode = std::uint32_t;

struct Socket {
    std::uint8_t state = 0; // as TCP's
    std::string path;
    INode peer = 0;
    std::vector<INode> pending; // of a listening one: those that nobody has accepted
    std::uint32_t unread = 0;   // bytes; of a listening one the number of those
};

Error ask(int netlink, std::uint32_t shown) {
    struct {
        nlmsghdr header;
        unix_diag_req request;
    } message{};
    message.header = {.nlmsg_len = sizeof message,
                      .nlmsg_type = SOCK_DIAG_BY_FAMILY,
                      .nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP,
                      .nlmsg_seq = 1,
                      .nlmsg_pid = 0};
    message.request.sdiag_family = AF_UNIX;
    message.request.udiag_states = (1U << TCP_LISTEN) | (1U << TCP_ESTABLISHED);
    message.request.udiag_show = shown;
    return ::send(netlink, &message, sizeof message, 0) == sizeof message ? Error()
                                                                          : Error::posix(errno);
}

template <typename T> T valueOf(std::string_view bytes) {
    T value{};
    std::memcpy(&value, bytes.data(), std::min(bytes.size(), sizeof value));
    return value;
}

void takeAttribute(Socket& socket, std::uint16_t type, std::string_view bytes) {
    switch (type) {
    case UNIX_DIAG_NAME:
        socket.path = bytes.substr(0, bytes.find('\0'));
        break;
    case UNIX_DIAG_PEER:
        socket.peer = valueOf<INode>(bytes);
        break;
    case UNIX_DIAG_ICONS:
        for (; bytes.size() >= sizeof(INode); bytes.remove_prefix(sizeof(INode))) {
            socket.pending.push_back(valueOf<INode>(bytes));
        }
        break;
    case UNIX_DIAG_RQLEN:
        socket.unread = valueOf<unix_diag_rqlen>(bytes).udiag_rqueue;
        break;
    default:
        break;
    }
}

Socket socketOf(std::string_view message) {
    Socket socket;
    socket.state = valueOf<unix_diag_msg>(message).udiag_state;
    message.remove_prefix(
        std::min(message.size(), std::size_t{NLMSG_ALIGN(sizeof(unix_diag_msg))}));
    while (message.size() >= sizeof(rtattr)) {
        const auto attribute = valueOf<rtattr>(message);
        if (attribute.rta_len < sizeof(rtattr) || attribute.rta_len > message.size()) {
            break;
        }
        takeAttribute(socket, attribute.rta_type,
                      message.substr(RTA_LENGTH(0), attribute.rta_len - RTA_LENGTH(0)));
        message.remove_prefix(std::min(message.size(), std::size_t{RTA_ALIGN(attribute.rta_len)}));
    }
    return socket;
}

// Visits each message of a datagram; false once the list is complete.
tl::expected<bool, Error> takeMessages(std::string_view datagram, std::vector<Socket>& sockets) {
    while (datagram.size() >= sizeof(nlmsghdr)) {
        const auto header = valueOf<nlmsghdr>(datagram);
        if (header.nlmsg_type == NLMSG_DONE) {
            return false;
        }
        if (header.nlmsg_len < NLMSG_HDRLEN || header.nlmsg_len > datagram.size()) {
            return tl::unexpected(Error::posix(EPROTO));
        }
        const std::string_view body =
            datagram.substr(NLMSG_HDRLEN, header.nlmsg_len - NLMSG_HDRLEN);
        if (header.nlmsg_type == NLMSG_ERROR) {
            return tl::unexpected(Error::posix(-valueOf<nlmsgerr>(body).error));
        }
        sockets.push_back(socketOf(body));
        datagram.remove_prefix(
            std::min(datagram.size(), std::size_t{NLMSG_ALIGN(header.nlmsg_len)}));
    }
    return true;
}

tl::expected<std::vector<Socket>, Error> allSockets(std::uint32_t shown) {
    const Descriptor netlink(::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_SOCK_DIAG));
    if (!netlink) {
        return tl::unexpected(Error::posix(errno));
    }
    if (Error error = ask(netlink.get(), shown)) {
        return tl::unexpected(std::move(error));
    }
    std::vector<Socket> sockets;
    std::array<char, 32768> space{}; // the length of the kernel's longest datagrams
    for (;;) {
        const ssize_t size = ::recv(netlink.get(), space.data(), space.size(), 0);
        if (size <= 0) {
            return tl::unexpected(Error::posix(size == 0 ? EPROTO : errno));
        }
        const auto more =
            takeMessages(std::string_view(space.data(), static_cast<std::size_t>(size)), sockets);
        if (!more) {
            return tl::unexpected(more.error());
        }
        if (!*more) {
            return sockets;
        }
    }
}

// The socket that a link in a process's folder fd names. Only the link is read: a look at the file
// itself could wait for a file system that does not answer.
std::optional<INode> socketOfLink(const std::filesystem::path& link) {
    constexpr std::string_view kBegin = "socket:[";
    std::error_code gone;
    const std::string target = std::filesystem::read_symlink(link, gone).native();
    INode inode = 0;
    return target.starts_with(kBegin) && std::from_chars(target.data() + kBegin.size(),
                                                         target.data() + target.size(), inode)
                                                 .ec == std::errc()
               ? std::optional(inode)
               : std::nullopt;
}

// Finds the processes of sockets among those whose descriptors this process may see.
void findProcesses(std::map<INode, SocketPeer>& peers) {
    std::error_code failure;
    for (const auto& process : std::filesystem::directory_iterator("/proc", failure)) {
        const std::string name = process.path().filename();
        pid_t pid = 0;
        if (std::from_chars(name.data(), name.data() + name.size(), pid).ec != std::errc()) {
            continue;
        }
        std::error_code refusal;
        for (const auto& entry :
             std::filesystem::directory_iterator(process.path() / "fd", refusal)) {
            const auto inode = socketOfLink(entry.path());
            const auto peer = inode ? peers.find(*inode) : peers.end();
            struct stat owner{};
            if (peer != peers.end() && ::stat(process.path().c_str(), &owner) == 0) {
                peer->second.process = pid;
                peer->second.user = owner.st_uid;
                std::error_code gone;
                peer->second.program =
                    std::filesystem::read_symlink(process.path() / "exe", gone).native();
            }
        }
    }
}

} // namespace

tl::expected<std::optional<ListeningSocket>, Error> listeningSocketAt(const std::string& path) {
    constexpr std::uint32_t kShown = UDIAG_SHOW_NAME | UDIAG_SHOW_PEER | UDIAG_SHOW_RQLEN;
    const auto listens = [&](const Socket& socket) {
        return socket.path == path && socket.state == TCP_LISTEN;
    };
    auto sockets = allSockets(kShown | UDIAG_SHOW_ICONS);
    if (sockets && std::ranges::none_of(*sockets, listens)) {
        // The kernel ends its list at a socket whose pending ones do not fit into a datagram.
        sockets = allSockets(kShown);
    }
    if (!sockets) {
        return tl::unexpected(sockets.error());
    }
    if (std::ranges::none_of(*sockets, listens)) {
        return std::nullopt;
    }
    std::map<INode, SocketPeer> peers;
    ListeningSocket listening;
    for (const Socket& socket : *sockets) {
        if (socket.path != path) {
            continue;
        }
        if (socket.state == TCP_LISTEN && socket.pending.empty()) {
            listening.unnamed += socket.unread;
        }
        for (const INode pending : socket.pending) {
            if (pending != 0) { // otherwise it has closed its end already
                peers[pending].isWaiting = true;
            }
        }
        if (socket.peer != 0) {
            SocketPeer& peer = peers[socket.peer];
            peer.isWaiting = peer.isWaiting || socket.unread > 0;
        }
    }
    if (!peers.empty()) {
        findProcesses(peers);
    }
    for (const auto& [inode, peer] : peers) {
        listening.peers.push_back(peer);
    }
    return listening;
}

tl::expected<bool, Error> isBoundAt(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) {
        return tl::unexpected(Error::posix(ENAMETOOLONG));
    }
    std::ranges::copy(path, std::begin(address.sun_path));
    // The kernel refuses to connect sockets of two types, once it has found the other one.
    const Descriptor socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (!socket) {
        return tl::unexpected(Error::posix(errno));
    }
    if (::connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) {
        return false; // a socket for datagrams
    }
    switch (errno) {
    case EPROTOTYPE:
        return true;
    case ECONNREFUSED:
    case ENOENT:
        return false;
    default:
        return tl::unexpected(Error::posix(errno));
    }
}

} // namespace qv
