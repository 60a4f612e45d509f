#include "platform/xpc/wire/WireError.h"
#include "support/ErrorMatchers.h"

#include "RawClient.h"
#include "ServiceThread.h"
#include <stdexcept>
#include <sys/socket.h>

namespace qv::xpc {
namespace {

using test::RawClient;
using test::ServiceThread;
using namespace std::chrono_literals;
using Kind = ConnectionError::Kind;

std::string textOf(const Message& message) {
    const Value* text = message.dictionary().find("text");
    return text == nullptr ? std::string() : std::string(text->asString());
}

TEST(Connection, GreetsEachPeerWithItsOwnNonce) {
    const ServiceThread service;
    const std::string nonce = RawClient(service.path()).greet();
    EXPECT_EQ(nonce.size(), 32U);
    EXPECT_NE(nonce, RawClient(service.path()).greet());
}

TEST(Connection, AnswersUnderTheSequenceOfTheRequest) {
    const ServiceThread service;
    const RawClient client = RawClient::greeted(service.path());
    for (const std::uint64_t sequence : {0ULL, 7ULL, 7ULL, ~0ULL}) {
        const std::string text(sequence == 0 ? 3'000'000 : 5, 't');
        ASSERT_TRUE(client.send(client.request(text, sequence)));
        const Frame reply = client.readFrame();
        EXPECT_EQ(reply.sequence, sequence);
        EXPECT_EQ(dictionaryOfBody(reply.body)->find("text")->asString(), text);
    }
    for (const char byte : client.request("bytes", 3)) { // slow, not wrong
        ASSERT_TRUE(client.send({&byte, 1}));
    }
    EXPECT_EQ(client.readFrame().sequence, 3U);
}

// A reply may be made once and only where one is awaited; a message that is passed over in silence
// must not block the next one.
TEST(Connection, MakesOneReplyForThoseWhoWait) {
    std::vector<std::string> seen;
    ServiceThread service({.onMessage = [&](ServiceThread&, const Message& message) {
        seen.push_back(textOf(message));
        const auto connection = message.remoteConnection();
        if (textOf(message) == "no reply wanted") {
            EXPECT_EQ(connection, nullptr);
        } else if (textOf(message) == "answered") {
            const auto reply = connection->createReply(message);
            ASSERT_TRUE(reply);
            EXPECT_FALSE(connection->createReply(message));
            connection->send(*reply, Value::dictionary({}));
            connection->send(*reply, Value::dictionary({})); // dropped
        }
    }});
    const RawClient client = RawClient::greeted(service.path());
    ASSERT_TRUE(client.send(client.request("no reply wanted", 1, false) +
                            client.request("passed over", 2) + client.request("answered", 3)));
    const Frame reply = client.readFrame();
    EXPECT_EQ(reply.sequence, 3U);
    ASSERT_TRUE(client.send(client.request("answered", 4)));
    EXPECT_EQ(client.readFrame().sequence, 4U);
    EXPECT_EQ(seen.size(), 4U);
}

// A client may have one request at hand; the next stays in its socket until that one is answered.
TEST(Connection, ReadsNoFurtherRequestWhileOneIsAtHand) {
    std::vector<Message> held;
    ServiceThread service(
        {.onMessage = [&](ServiceThread&, const Message& message) { held.push_back(message); }});
    const RawClient client = RawClient::greeted(service.path());
    ASSERT_TRUE(client.send(client.request("one", 1) + client.request("two", 2)));
    service.waitForMessages(1);
    const RawClient other = RawClient::greeted(service.path());
    ASSERT_TRUE(other.send(other.request("three", 3)));
    EXPECT_EQ(service.waitForMessages(2), 2U); // the other client's
    service.perform([&] {
        ASSERT_EQ(held.size(), 2U);
        EXPECT_EQ(textOf(held[1]), "three");
        ServiceThread::echo(held[0]);
        held.clear();
    });
    EXPECT_EQ(client.readFrame().sequence, 1U);
    EXPECT_EQ(service.waitForMessages(3), 3U);
    service.perform([&] {
        EXPECT_EQ(textOf(held.at(0)), "two");
        held.clear();
    });
}

// While another request runs, one client closes after its request and one does not.
TEST(Connection, DropsARequestWhoseClientHasClosed) {
    std::string seen;
    std::optional<RawClient> closing;
    std::optional<RawClient> waiting;
    ServiceThread service({.onMessage = [&](ServiceThread&, const Message& message) {
        seen += textOf(message) + " ";
        if (textOf(message) == "runs") {
            EXPECT_TRUE(closing->send(closing->request("closes")));
            closing->close();
            EXPECT_TRUE(waiting->send(waiting->request("waits")));
        }
        ServiceThread::echo(message);
    }});
    const RawClient running = RawClient::greeted(service.path());
    closing = RawClient::greeted(service.path());
    waiting = RawClient::greeted(service.path());
    ASSERT_TRUE(running.send(running.request("runs")));
    EXPECT_EQ(waiting->readFrame().kind, FrameKind::reply);
    EXPECT_EQ(seen, "runs waits ");
}

TEST(Connection, EndsAloneWhenItsHandlerThrows) {
    ServiceThread service({.onMessage = [](ServiceThread&, const Message& message) {
        if (textOf(message) == "throw") {
            throw std::runtime_error("fault");
        }
        ServiceThread::echo(message);
    }});
    const RawClient bystander = RawClient::greeted(service.path());
    const RawClient client = RawClient::greeted(service.path());
    ASSERT_TRUE(client.send(client.request("throw")));
    EXPECT_TRUE(client.isClosed());
    EXPECT_THAT(service.waitForErrors(1).at(0).cause,
                failsWith(kWireErrorDomain, static_cast<int>(WireErrorCode::handlerFailed)));
    EXPECT_TRUE(bystander.isServed());
}

// A client that closes its sending side has said all it wants, but still waits for the answer.
TEST(Connection, AnswersAClientThatSendsNoMore) {
    ServiceThread service;
    const RawClient client = RawClient::greeted(service.path());
    ASSERT_TRUE(client.send(client.request("last", 5)));
    ASSERT_EQ(::shutdown(client.fd(), SHUT_WR), 0);
    const Frame reply = client.readFrame();
    EXPECT_EQ(reply.sequence, 5U);
    EXPECT_TRUE(client.isClosed());
    EXPECT_EQ(service.waitForErrors(1).at(0).kind, Kind::invalidated);
}

// A peer cannot be blamed for time in which nobody listened to it: half a frame, then a handler
// that blocks the loop beyond the deadline, then the rest.
TEST(Connection, CountsNoTimeOfABusyLoop) {
    std::optional<RawClient> slow;
    std::string request;
    Limits limits;
    limits.frame = 500ms;
    ServiceThread service(
        {.limits = limits, .onMessage = [&](ServiceThread&, const Message& message) {
             if (textOf(message) == "block") {
                 std::this_thread::sleep_for(700ms); // a long script
                 EXPECT_TRUE(slow->send(request.substr(30)));
             }
             ServiceThread::echo(message);
         }});
    slow = RawClient::greeted(service.path());
    const RawClient busy = RawClient::greeted(service.path());
    request = slow->request("slow", 9);
    ASSERT_TRUE(slow->send(request.substr(0, 30)));
    ASSERT_TRUE(busy.send(busy.request("block")));
    EXPECT_EQ(slow->readFrame().sequence, 9U);
}

} // namespace
} // namespace qv::xpc
