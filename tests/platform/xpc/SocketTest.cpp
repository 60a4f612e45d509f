#include "platform/xpc/Peer.h"
#include "platform/xpc/wire/SocketIO.h"
#include "platform/xpc/wire/WireError.h"
#include "support/BuildFolder.h"
#include "support/StartedProgram.h"
#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>

namespace qv::xpc {
namespace {

using qv::test::StartedProgram;

std::ptrdiff_t descriptorCount() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

void sendDescriptors(int socket, std::size_t count) {
    constexpr std::size_t kMost = 16;
    alignas(cmsghdr) std::array<char, CMSG_SPACE(kMost * sizeof(int))> control{};
    char byte = 'x';
    iovec piece{&byte, 1};
    msghdr message{};
    message.msg_iov = &piece;
    message.msg_iovlen = 1;
    message.msg_control = control.data();
    message.msg_controllen = CMSG_SPACE(count * sizeof(int));
    cmsghdr* header = CMSG_FIRSTHDR(&message);
    header->cmsg_level = SOL_SOCKET;
    header->cmsg_type = SCM_RIGHTS;
    header->cmsg_len = CMSG_LEN(count * sizeof(int));
    const std::array<int, kMost> fds{};
    std::memcpy(CMSG_DATA(header), fds.data(), count * sizeof(int));
    ASSERT_EQ(::sendmsg(socket, &message, 0), 1);
}

// A descriptor that stays behind is a leak that a client causes at will; more than fit must not
// slip through either.
TEST(SocketIO, RefusesAndClosesDescriptors) {
    std::array<int, 2> fds{};
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds.data()), 0);
    const Descriptor ours(fds[0]);
    const Descriptor theirs(fds[1]);
    const int on = 1;
    ::setsockopt(ours.get(), SOL_SOCKET, SO_PASSCRED, &on, sizeof on);
    const std::ptrdiff_t before = descriptorCount();
    for (const std::size_t count : {1U, 4U, 16U}) {
        sendDescriptors(theirs.get(), count);
        std::array<char, 8> space{};
        const auto piece = receive(ours.get(), space);
        ASSERT_FALSE(piece) << count;
        EXPECT_EQ(piece.error().code(), static_cast<int>(WireErrorCode::descriptors));
        EXPECT_EQ(descriptorCount(), before);
    }
}

// Both ways of finding the peer must name the process that connected, and neither may find one
// that has gone: the default would be user 0.
TEST(Peer, NamesTheProcessThatConnected) {
    const qv::test::TemporaryDirectory directory;
    const std::string path = directory / "socket";
    const std::string client = qv::test::built("bin/qv_sample_client");
    const Descriptor listener = qv::test::listenAt(path);
    {
        StartedProgram child({.command = {client, path}});
        const Descriptor socket(::accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC));
        for (const auto& peer : {peerOf(socket.get()), peerByPID(socket.get())}) {
            ASSERT_TRUE(peer);
            EXPECT_EQ(peer->process->pid(), child.pid());
            EXPECT_EQ(peer->process->user(), ::geteuid());
            EXPECT_EQ(peer->process->credentials()->group, ::getegid());
            EXPECT_FALSE(peer->process->hasEnded());
            EXPECT_NE(::fcntl(peer->process->pidfd(), F_GETFD) & FD_CLOEXEC, 0);
        }
        const auto peer = peerOf(socket.get());
        child.kill();
        child.wait();
        EXPECT_TRUE(peer->process->hasEnded());
    }
    StartedProgram gone({.command = {client, path}});
    pollfd arrival{.fd = listener.get(), .events = POLLIN, .revents = 0};
    ASSERT_EQ(::poll(&arrival, 1, -1), 1);
    gone.kill();
    gone.wait();
    const Descriptor socket(::accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC));
    EXPECT_FALSE(peerOf(socket.get()));
    EXPECT_FALSE(peerByPID(socket.get()));
}

} // namespace
} // namespace qv::xpc
