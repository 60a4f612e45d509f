#include "platform/xpc/wire/WireError.h"

#include <gtest/gtest.h>

#include "RawClient.h"
#include "ServiceThread.h"
#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace qv::xpc {
namespace {

using test::ChildProcess;
using test::descriptorCount;
using test::frameBytes;
using test::RawClient;
using test::ServiceThread;
using namespace std::chrono_literals;
using Kind = ConnectionError::Kind;

// Sends `bytes` on a greeted connection, which must be closed for it with that error; no message
// may come of it, and others are served on.
void expectClosedFor(std::string_view bytes, WireErrorCode code) {
    ServiceThread service;
    RawClient bystander(service.path());
    bystander.greet();
    RawClient client(service.path());
    client.greet();
    static_cast<void>(client.send(bytes));
    EXPECT_TRUE(client.isClosed());
    const auto errors = service.waitForErrors(1);
    ASSERT_EQ(errors.size(), 1U);
    EXPECT_EQ(errors[0].kind, Kind::interrupted);
    EXPECT_EQ(errors[0].cause.domain(), kWireErrorDomain);
    EXPECT_EQ(errors[0].cause.code(), static_cast<int>(code)) << errors[0].cause.description();
    EXPECT_EQ(service.waitForMessages(0), 0U);
    EXPECT_TRUE(bystander.isServed());
}

std::string bodyWith(const Value& nonce) {
    return bodyOfDictionary(Value::dictionary({{"type", Value::string("x")}, {"nonce", nonce}}))
        .value();
}

TEST(HostilePeer, IsClosedForBytesThatAreNoRequest) {
    expectClosedFor("GET / HTTP/1.1\r\nHost: localhost\r\n\r\n", WireErrorCode::badFrame);
    const FrameHeaderBytes huge = encodeFrameHeader({FrameKind::request, true, 1, 0xFFFFFFFF});
    expectClosedFor({huge.data(), huge.size()}, WireErrorCode::tooLong);
    expectClosedFor(frameBytes(FrameKind::reply, "x", 1, false), WireErrorCode::badFrame);
    expectClosedFor(frameBytes(FrameKind::request, ""), WireErrorCode::badBody);
    expectClosedFor(frameBytes(FrameKind::request, "{ nonce = <00>; }"), WireErrorCode::badBody);
}

// Without the nonce a request could have been queued before the peer was judged, or come from
// somebody who holds another connection.
TEST(HostilePeer, IsClosedForARequestWithoutItsOwnNonce) {
    const std::string none =
        bodyOfDictionary(Value::dictionary({{"type", Value::string("x")}})).value();
    expectClosedFor(frameBytes(FrameKind::request, none), WireErrorCode::wrongNonce);
    for (const Value& wrong : {Value::data(""), Value::data(std::string(32, '\0')),
                               Value::string(std::string(32, 'x')), Value::integer(0)}) {
        expectClosedFor(frameBytes(FrameKind::request, bodyWith(wrong)), WireErrorCode::wrongNonce);
    }
    ServiceThread service;
    RawClient owner(service.path());
    const std::string nonce = owner.greet();
    const RawClient thief(service.path());
    ASSERT_TRUE(thief.send(frameBytes(FrameKind::request, bodyWith(Value::data(nonce)))));
    EXPECT_TRUE(thief.isClosed());
    EXPECT_TRUE(owner.isServed());
}

// One byte at a time is slow, not wrong.
TEST(HostilePeer, IsServedWhenItSendsByteByByte) {
    ServiceThread service;
    RawClient client(service.path());
    client.greet();
    for (const char byte : client.request("bytes", 3)) {
        ASSERT_TRUE(client.send({&byte, 1}));
    }
    EXPECT_EQ(client.readFrame().sequence, 3U);
}

// Each way of keeping the service waiting has its deadline, and nobody else waits meanwhile.
TEST(HostilePeer, IsClosedWhenItKeepsTheServiceWaiting) {
    struct Row {
        const char* fault;
        std::chrono::milliseconds Limits::* limit;
        void (*act)(RawClient&);
    };
    const std::array<Row, 3> rows = {{
        {"half a header", &Limits::frame,
         [](RawClient& client) { ASSERT_TRUE(client.send("QVCW")); }},
        {"half a body", &Limits::frame,
         [](RawClient& client) {
             const std::string request = client.request("half");
             ASSERT_TRUE(client.send(request.substr(0, request.size() - 1)));
         }},
        {"never reads its reply", &Limits::replyProgress,
         [](RawClient& client) {
             ASSERT_TRUE(client.send(client.request(std::string(2'000'000, 'x'))));
         }},
    }};
    for (const Row& row : rows) {
        Limits limits;
        limits.*(row.limit) = 500ms;
        ServiceThread service({.limits = limits});
        RawClient client(service.path());
        client.greet();
        row.act(client);
        RawClient bystander(service.path());
        bystander.greet();
        EXPECT_TRUE(bystander.isServed()) << row.fault;
        const auto errors = service.waitForErrors(1);
        ASSERT_EQ(errors.size(), 1U) << row.fault;
        EXPECT_EQ(errors[0].cause.code(), static_cast<int>(WireErrorCode::late)) << row.fault;
        EXPECT_TRUE(client.isClosed());
        EXPECT_TRUE(bystander.isServed(2)) << "idle after its first request, which is no fault";
    }
}

TEST(HostilePeer, IsClosedWhenItsReplyWouldNotFitTheQueue) {
    Limits limits;
    limits.replyQueue = 10'000;
    ServiceThread service({.limits = limits});
    RawClient client(service.path());
    client.greet();
    ASSERT_TRUE(client.send(client.request(std::string(20'000, 'x'))));
    EXPECT_TRUE(client.isClosed());
    EXPECT_EQ(service.waitForErrors(1).at(0).cause.code(),
              static_cast<int>(WireErrorCode::tooLong));
}

// The verdict is on one process: what another one writes on its socket is not obeyed.
TEST(HostilePeer, IsClosedWhenAnotherProcessWritesOnItsSocket) {
    ServiceThread service;
    RawClient client(service.path());
    client.greet();
    const std::string request = client.request("forged");
    ChildProcess child([&] { return client.send(request) ? 0 : 1; });
    ASSERT_EQ(child.wait(), 0);
    EXPECT_TRUE(client.isClosed());
    const auto errors = service.waitForErrors(1);
    EXPECT_EQ(errors.at(0).cause.code(), static_cast<int>(WireErrorCode::foreignSender));
    EXPECT_EQ(service.waitForMessages(0), 0U);
}

TEST(HostilePeer, CannotPassDescriptors) {
    ServiceThread service;
    RawClient client(service.path());
    client.greet();
    ASSERT_TRUE(client.isServed()); // so that the service is done with what accepting took
    const std::size_t before = descriptorCount();
    std::string request = client.request("with a descriptor");
    alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(int))> control{};
    iovec piece{request.data(), request.size()};
    msghdr message{};
    message.msg_iov = &piece;
    message.msg_iovlen = 1;
    message.msg_control = control.data();
    message.msg_controllen = control.size();
    cmsghdr* header = CMSG_FIRSTHDR(&message);
    header->cmsg_level = SOL_SOCKET;
    header->cmsg_type = SCM_RIGHTS;
    header->cmsg_len = CMSG_LEN(sizeof(int));
    const int fd = STDERR_FILENO;
    std::memcpy(CMSG_DATA(header), &fd, sizeof fd);
    if (::sendmsg(client.fd(), &message, MSG_NOSIGNAL) < 0) {
        EXPECT_EQ(errno, EPERM); // the kernel refuses it for us
        EXPECT_TRUE(client.isServed());
        EXPECT_EQ(descriptorCount(), before);
        EXPECT_EQ(service.waitForMessages(0), 2U);
    } else {
        EXPECT_TRUE(client.isClosed());
        EXPECT_EQ(service.waitForErrors(1).at(0).cause.code(),
                  static_cast<int>(WireErrorCode::descriptors));
        EXPECT_EQ(service.waitForMessages(0), 1U);
    }
}

// A client killed in any state leaves no connection, and the event says how it went.
TEST(HostilePeer, MayDieInAnyState) {
    struct Row {
        const char* state;
        Kind kind;
        void (*act)(RawClient&);
    };
    const std::array<Row, 5> rows = {{
        {"greeting half read", Kind::invalidated,
         [](RawClient& client) { static_cast<void>(client.receive(1)); }},
        {"greeted", Kind::invalidated, [](RawClient& client) { client.greet(); }},
        {"amid a frame", Kind::interrupted,
         [](RawClient& client) {
             client.greet();
             static_cast<void>(client.send("QVCW"));
         }},
        {"request at hand", Kind::invalidated,
         [](RawClient& client) {
             client.greet();
             static_cast<void>(client.send(client.request("hold")));
         }},
        {"reply not read", Kind::invalidated,
         [](RawClient& client) {
             client.greet();
             static_cast<void>(client.send(client.request(std::string(2'000'000, 'x'))));
         }},
    }};
    std::vector<Message> held;
    ServiceThread service({.onMessage = [&](ServiceThread&, const Message& message) {
        if (message.dictionary().find("text")->asString() == "hold") {
            held.push_back(message);
        } else {
            ServiceThread::echo(message);
        }
    }});
    std::size_t ended = 0;
    for (const Row& row : rows) {
        std::array<int, 2> ready{};
        ASSERT_EQ(::pipe2(ready.data(), O_CLOEXEC), 0);
        const Descriptor readEnd(ready[0]);
        const Descriptor writeEnd(ready[1]);
        const std::size_t messages = service.waitForMessages(0);
        ChildProcess client([&] {
            RawClient inside(service.path());
            row.act(inside);
            static_cast<void>(!::write(writeEnd.get(), "x", 1));
            ::pause();
            return 0;
        });
        char byte = 0;
        ASSERT_EQ(::read(readEnd.get(), &byte, 1), 1);
        if (std::string_view(row.state).starts_with("re")) {
            service.waitForMessages(messages + 1);
        }
        client.kill();
        client.wait();
        const auto errors = service.waitForErrors(++ended);
        ASSERT_EQ(errors.size(), ended) << row.state;
        EXPECT_EQ(errors.back().kind, row.kind) << row.state;
    }
    service.perform([&] { held.clear(); });
}

// A request whose sender is gone is not obeyed: its number may be another's by now.
TEST(HostilePeer, IsNotObeyedAfterItsEnd) {
    ServiceThread service;
    std::array<int, 2> ends{};
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()), 0);
    const Descriptor ours(ends[0]);
    const Descriptor theirs(ends[1]);
    char byte = 0;
    ChildProcess client([&] {
        RawClient inside(service.path());
        inside.greet();
        static_cast<void>(!::write(theirs.get(), "x", 1));
        static_cast<void>(!::read(theirs.get(), &byte, 1));
        static_cast<void>(inside.send(inside.request("last words")));
        return 0;
    });
    ASSERT_EQ(::read(ours.get(), &byte, 1), 1);
    // The loop is kept busy from before the request until after its sender's end.
    service.perform([&] {
        ASSERT_EQ(::write(ours.get(), "y", 1), 1);
        EXPECT_EQ(client.wait(), 0);
    });
    ASSERT_EQ(service.waitForErrors(1).size(), 1U);
    EXPECT_EQ(service.waitForErrors(1).at(0).kind, Kind::invalidated);
    EXPECT_EQ(service.waitForMessages(0), 0U);
}

TEST(HostilePeer, LeavesNoDescriptorHoweverOftenItBreaksOff) {
    constexpr std::size_t kTimes = 1000;
    Limits limits;
    limits.refusalsLogged = 0;
    ServiceThread service({.limits = limits});
    {
        RawClient warm(service.path());
        warm.greet();
        EXPECT_TRUE(warm.isServed());
    }
    service.waitForErrors(1);
    service.perform([] {}); // what held the connection for its last event has gone
    const std::size_t before = descriptorCount();
    for (std::size_t i = 0; i < kTimes; ++i) {
        RawClient client(service.path());
        ASSERT_FALSE(client.greet().empty()) << i;
        static_cast<void>(client.send(i % 2 == 0 ? "QV" : "no frame at all, but long enough"));
        client.close();
        ASSERT_EQ(service.waitForErrors(i + 2).size(), i + 2);
    }
    service.perform([] {});
    EXPECT_EQ(descriptorCount(), before);
}

} // namespace
} // namespace qv::xpc
