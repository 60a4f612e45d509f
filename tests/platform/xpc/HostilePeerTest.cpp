#include "platform/xpc/wire/WireError.h"
#include "support/ErrorMatchers.h"
#include "support/InChild.h"

#include "RawClient.h"
#include "ServiceThread.h"
#include <sys/socket.h>

namespace qv::xpc {
namespace {

using test::frameBytes;
using test::RawClient;
using test::ServiceThread;
using namespace std::chrono_literals;
using Kind = ConnectionError::Kind;

std::string requestWith(const Value& nonce) {
    const Value dictionary = Value::dictionary({{"type", Value::string("x")}, {"nonce", nonce}});
    return frameBytes(FrameKind::request, bodyOfDictionary(dictionary).value());
}

// A request without the nonce could have been queued before the peer was judged, or come from
// somebody who holds another connection.
TEST(HostilePeer, IsClosedForInvalidRequests) {
    const FrameHeaderBytes huge = encodeFrameHeader({FrameKind::request, true, 1, 0xFFFFFFFF});
    ServiceThread service;
    RawClient bystander(service.path());
    const std::string nonceOfAnother = bystander.greet();
    const std::vector<std::pair<std::string, WireErrorCode>> rows = {
        {"GET / HTTP/1.1\r\nHost: localhost\r\n\r\n", WireErrorCode::badFrame},
        {std::string(huge.data(), huge.size()), WireErrorCode::tooLong},
        {frameBytes(FrameKind::request, "{ nonce = <00>; }"), WireErrorCode::badBody},
        {requestWith(Value()), WireErrorCode::wrongNonce},
        {requestWith(Value::data("")), WireErrorCode::wrongNonce},
        {requestWith(Value::string(std::string(32, 'x'))), WireErrorCode::wrongNonce},
        {requestWith(Value::data(nonceOfAnother)), WireErrorCode::wrongNonce},
    };
    std::size_t closed = 0;
    for (const auto& [bytes, code] : rows) {
        const RawClient client = RawClient::greeted(service.path());
        static_cast<void>(client.send(bytes));
        ASSERT_TRUE(client.isClosed()) << closed;
        const auto errors = service.waitForErrors(++closed);
        ASSERT_EQ(errors.size(), closed);
        EXPECT_EQ(errors.back().kind, Kind::interrupted);
        EXPECT_THAT(errors.back().cause, failsWith(kWireErrorDomain, static_cast<int>(code)));
    }
    EXPECT_EQ(service.waitForMessages(0), 0U);
    EXPECT_TRUE(bystander.isServed());
}

// Half a body, and a reply that is never read: each has its deadline, and nobody else waits.
TEST(HostilePeer, IsClosedWhenItKeepsTheServiceWaiting) {
    for (const auto limit : {&Limits::frame, &Limits::replyProgress}) {
        Limits limits;
        limits.*limit = 500ms;
        ServiceThread service({.limits = limits});
        const RawClient client = RawClient::greeted(service.path());
        const std::string request = client.request(std::string(2'000'000, 'x'));
        ASSERT_TRUE(client.send(limit == &Limits::frame ? request.substr(0, 100) : request));
        const RawClient bystander = RawClient::greeted(service.path());
        EXPECT_TRUE(bystander.isServed());
        const auto errors = service.waitForErrors(1);
        ASSERT_EQ(errors.size(), 1U);
        EXPECT_THAT(errors[0].cause,
                    failsWith(kWireErrorDomain, static_cast<int>(WireErrorCode::late)));
        EXPECT_TRUE(client.isClosed());
        EXPECT_TRUE(bystander.isServed(2)) << "idle after its first request, which is not a fault";
    }
}

// The verdict is on one process: what another one writes on its socket is not obeyed.
TEST(HostilePeer, IsClosedWhenAnotherProcessWrites) {
    ServiceThread service;
    const RawClient client = RawClient::greeted(service.path());
    const std::string request = client.request("forged");
    ASSERT_EQ(qv::test::inChild([&] { return client.send(request) ? 0 : 1; }), 0);
    ASSERT_TRUE(client.isClosed());
    EXPECT_THAT(service.waitForErrors(1).at(0).cause,
                failsWith(kWireErrorDomain, static_cast<int>(WireErrorCode::foreignSender)));
    EXPECT_EQ(service.waitForMessages(0), 0U);
}

// A client that breaks off in any state leaves no connection, and the event says how it went.
TEST(HostilePeer, MayBreakOffInAnyState) {
    struct Row {
        const char* state;
        Kind kind;
        std::string text; ///< of a request
        bool isWhole = true;
    };
    std::vector<Message> held;
    ServiceThread service({.onMessage = [&](ServiceThread&, const Message& message) {
        if (message.dictionary().find("text")->asString() == "hold") {
            held.push_back(message);
        } else {
            ServiceThread::echo(message);
        }
    }});
    std::size_t ended = 0;
    std::size_t messages = 0;
    for (const Row& row : {Row{"amid a frame", Kind::interrupted, "half", false},
                           Row{"request at hand", Kind::invalidated, "hold"},
                           Row{"reply not read", Kind::invalidated, std::string(2'000'000, 'x')}}) {
        RawClient client = RawClient::greeted(service.path());
        const std::string request = client.request(row.text);
        ASSERT_TRUE(client.send(row.isWhole ? request : request.substr(0, 30)));
        messages += row.isWhole ? 1U : 0U;
        EXPECT_EQ(service.waitForMessages(messages), messages);
        client.close();
        const auto errors = service.waitForErrors(++ended);
        ASSERT_EQ(errors.size(), ended) << row.state;
        EXPECT_EQ(errors.back().kind, row.kind) << row.state;
    }
    service.perform([&] { held.clear(); });
}

} // namespace
} // namespace qv::xpc
