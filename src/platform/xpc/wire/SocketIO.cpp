#include "platform/xpc/wire/SocketIO.h"

#include "platform/foundation/os/Descriptor.h"
#include "platform/xpc/wire/WireError.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <sys/socket.h>

namespace qv::xpc {

namespace {

// The room for the sender and for some descriptors: more are never delivered, as the kernel drops
// them and says so.
constexpr std::size_t kDescriptorsTaken = 4;
constexpr std::size_t kControlSize =
    CMSG_SPACE(sizeof(ucred)) + CMSG_SPACE(kDescriptorsTaken * sizeof(int));

const int kWithoutWaiting = MSG_DONTWAIT;

struct Control {
    std::optional<pid_t> sender;
    bool foreign = false; // anything but one sender
};

void closeDescriptors(const cmsghdr& header) {
    const std::size_t count = (header.cmsg_len - CMSG_LEN(0)) / sizeof(int);
    for (std::size_t i = 0; i < count; ++i) {
        int fd = -1;
        std::memcpy(&fd, CMSG_DATA(&header) + (i * sizeof(int)), sizeof(int));
        const Descriptor closed(fd);
    }
}

Control examine(msghdr& message) {
    Control control;
    for (cmsghdr* header = CMSG_FIRSTHDR(&message); header != nullptr;
         header = CMSG_NXTHDR(&message, header)) {
        if (header->cmsg_level == SOL_SOCKET && header->cmsg_type == SCM_CREDENTIALS &&
            header->cmsg_len == CMSG_LEN(sizeof(ucred))) {
            ucred credentials{};
            std::memcpy(&credentials, CMSG_DATA(header), sizeof credentials);
            control.sender = credentials.pid;
            continue;
        }
        control.foreign = true;
        if (header->cmsg_level == SOL_SOCKET && header->cmsg_type == SCM_RIGHTS) {
            closeDescriptors(*header);
        }
    }
    return control;
}

} // namespace

tl::expected<Received, Error> receive(int socket, std::span<char> space, Waiting waiting) {
    const int flags = MSG_CMSG_CLOEXEC | (waiting == Waiting::never ? kWithoutWaiting : 0);
    iovec piece{space.data(), space.size()};
    alignas(cmsghdr) std::array<char, kControlSize> controlBytes{};
    msghdr message{};
    message.msg_iov = &piece;
    message.msg_iovlen = 1;
    message.msg_control = controlBytes.data();
    message.msg_controllen = controlBytes.size();
    ssize_t count = 0;
    do {
        count = ::recvmsg(socket, &message, flags);
    } while (count < 0 && errno == EINTR);
    if (count < 0) {
        if (errno == EAGAIN) {
            return Received{};
        }
        return tl::unexpected(Error::posix(errno));
    }
    const Control control = examine(message);
    if (control.foreign || (message.msg_flags & MSG_CTRUNC) != 0) {
        return tl::unexpected(wireError(WireErrorCode::descriptors,
                                        "descriptors or other control data came with a message"));
    }
    if (count == 0) {
        return Received{Received::Outcome::ended, 0, std::nullopt};
    }
    return Received{Received::Outcome::bytes, static_cast<std::size_t>(count), control.sender};
}

tl::expected<std::size_t, Error> send(int socket, std::string_view bytes) {
    ssize_t count = 0;
    do {
        count = ::send(socket, bytes.data(), bytes.size(), kWithoutWaiting | MSG_NOSIGNAL);
    } while (count < 0 && errno == EINTR);
    if (count < 0) {
        if (errno == EAGAIN) {
            return 0;
        }
        return tl::unexpected(Error::posix(errno));
    }
    return static_cast<std::size_t>(count);
}

} // namespace qv::xpc
