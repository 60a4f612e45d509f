#include "platform/xpc/ClientConnection.h"

#include "support/BuildFolder.h"
#include "support/ErrorMatchers.h"
#include "support/StartedProgram.h"

#include "RawClient.h"
#include "ServiceThread.h"
#include <fcntl.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

namespace qv::xpc {
namespace {

using test::frameBytes;
using test::ServiceThread;
using namespace std::chrono_literals;

auto fails(ClientErrorCode code) {
    return failsWith("QVCatalogClientErrorDomain", static_cast<std::int64_t>(code));
}

Value dictionaryOf(std::string_view text) {
    return Value::dictionary({{"text", Value::string(text)}});
}

// A service that does with each connection what it is told, closes it, and listens no more after
// the last.
class ScriptedService {
public:
    using Act = std::function<void(int client)>;

    explicit ScriptedService(std::vector<Act> acts)
        : listener_(qv::test::listenAt(path())), thread_([this, acts = std::move(acts)] {
              for (const Act& act : acts) {
                  const Descriptor client(
                      ::accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC));
                  act(client.get());
              }
              listener_.reset();
          }) {}
    [[nodiscard]] std::string path() const { return directory_ / "scripted.sock"; }

    static void say(int client, std::string_view bytes) {
        ::send(client, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    }
    /// Reads a request, or only waits for it.
    static void hear(int client, int flags = 0) {
        FrameHeaderBytes header{};
        ::recv(client, header.data(), header.size(), flags | MSG_WAITALL);
        if (flags == 0) {
            std::string body(decodeFrameHeader(header)->bodyLength, '\0');
            ::recv(client, body.data(), body.size(), MSG_WAITALL);
        }
    }

private:
    qv::test::TemporaryDirectory directory_;
    Descriptor listener_;
    std::jthread thread_;
};

std::string greetingBytes() {
    const auto body = bodyOfDictionary(Value::dictionary({{"nonce", Value::data("nonce")}}));
    return frameBytes(FrameKind::greeting, body.value(), 0, false);
}

std::string replyBytes(std::uint64_t sequence) {
    return frameBytes(FrameKind::reply, bodyOfDictionary(dictionaryOf("ok")).value(), sequence,
                      false);
}

ScriptedService::Act say(const std::string& bytes) {
    return [bytes](int client) { ScriptedService::say(client, bytes); };
}

// `flags`: MSG_PEEK leaves the request unread.
ScriptedService::Act greetAndHear(int flags, const std::string& answer) {
    return [=](int client) {
        ScriptedService::say(client, greetingBytes());
        ScriptedService::hear(client, flags);
        ScriptedService::say(client, answer);
    };
}

TEST(ClientConnection, ExchangesMessagesOfAnySize) {
    const ServiceThread service;
    auto connection = ClientConnection::connect(service.path());
    ASSERT_TRUE(connection);
    EXPECT_NE(::fcntl(connection->socket(), F_GETFD) & FD_CLOEXEC, 0);
    for (const std::size_t size : {0UL, 10UL, (qv::test::isSanitized() ? 1UL : 12UL) << 20}) {
        const auto reply = connection->sendMessageWithReply(dictionaryOf(std::string(size, 'x')));
        ASSERT_TRUE(reply) << size;
        EXPECT_EQ(reply->find("text")->asString().size(), size);
    }
    // A message that cannot be sent costs nothing but itself.
    EXPECT_THAT(connection->sendMessageWithReply(dictionaryOf(std::string(65UL << 20, 'x'))),
                fails(ClientErrorCode::protocol));
    EXPECT_THAT(connection->sendMessageWithReply(Value::string("no dictionary")),
                fails(ClientErrorCode::protocol));
    EXPECT_TRUE(connection->sendMessageWithReply(dictionaryOf("still there")));
}

TEST(ClientConnection, TellsApartWhyThereIsNoConnection) {
    const qv::test::TemporaryDirectory directory;
    const std::string missing = directory / "missing.sock";
    EXPECT_THAT(ClientConnection::connect(missing), fails(ClientErrorCode::unreachable));
    EXPECT_THAT(ClientConnection::connect(std::string(200, 'p')),
                fails(ClientErrorCode::unreachable));
    const std::string deserted = directory / "deserted.sock";
    qv::test::listenAt(deserted).reset();
    EXPECT_THAT(ClientConnection::connect(deserted), fails(ClientErrorCode::unreachable));
    const ServiceThread rejecting(
        {.onConnection = [](ServiceThread&, const auto& connection) { connection->cancel(); }});
    EXPECT_THAT(ClientConnection::connect(rejecting.path()), fails(ClientErrorCode::rejected));
}

TEST(ClientConnection, RefusesWrongGreetingsAndReplies) {
    for (const std::string& greeting :
         {std::string(30, 'x'), replyBytes(0), frameBytes(FrameKind::greeting, "x", 0, false),
          frameBytes(FrameKind::greeting, bodyOfDictionary(Value::dictionary({})).value(), 0,
                     false)}) {
        const ScriptedService service({say(greeting)});
        EXPECT_THAT(ClientConnection::connect(service.path()), fails(ClientErrorCode::protocol));
    }
    for (const std::string& answer : {std::string(30, 'x'), replyBytes(2), greetingBytes(),
                                      frameBytes(FrameKind::reply, "bplist00", 1, false)}) {
        const ScriptedService service({greetAndHear(0, answer)});
        auto connection = ClientConnection::connect(service.path());
        ASSERT_TRUE(connection);
        EXPECT_THAT(connection->sendMessageWithReply(dictionaryOf("x")),
                    fails(ClientErrorCode::protocol));
        EXPECT_THAT(connection->sendMessageWithReply(dictionaryOf("x")),
                    fails(ClientErrorCode::unreachable))
            << "what comes after a wrong reply belongs to no request: it connects anew";
    }
}

TEST(ClientConnection, ReportsAServiceThatDoesNotAnswer) {
    const ServiceThread service({.onMessage = [](ServiceThread&, const Message& message) {
        message.remoteConnection()->cancel();
    }});
    auto connection = ClientConnection::connect(service.path());
    ASSERT_TRUE(connection);
    EXPECT_THAT(connection->sendMessageWithReply(dictionaryOf("x")),
                fails(ClientErrorCode::interrupted));
    // Part of a reply means executed, whatever else is unread.
    const ScriptedService cut({greetAndHear(MSG_PEEK, replyBytes(1).substr(0, 9))});
    auto second = ClientConnection::connect(cut.path());
    ASSERT_TRUE(second);
    EXPECT_THAT(second->sendMessageWithReply(dictionaryOf("x")),
                fails(ClientErrorCode::interrupted));
}

const std::string kFarewell = frameBytes(FrameKind::farewell, "", 0, false);

TEST(ClientConnection, SendsAgainWhatWasNotExecuted) {
    const std::vector<std::pair<const char*, ScriptedService::Act>> rows = {
        {"farewell before the greeting", say(kFarewell)},
        {"farewell to a silent client", say(greetingBytes() + kFarewell)},
        {"end before the request", say(greetingBytes())},
        {"farewell after the request", greetAndHear(0, kFarewell)},
        {"request unread", greetAndHear(MSG_PEEK, "")},
        {"farewell, request unread", greetAndHear(MSG_PEEK, kFarewell)},
    };
    const auto good = greetAndHear(0, replyBytes(1));
    const std::size_t inPieces = qv::test::isSanitized() ? 1'000'000 : 5'000'000;
    for (const std::size_t size : {std::size_t{1}, inPieces}) {
        for (const auto& [name, act] : rows) {
            const ScriptedService service({act, act, good});
            auto connection = ClientConnection::connect(service.path());
            ASSERT_TRUE(connection) << name;
            const auto reply =
                connection->sendMessageWithReply(dictionaryOf(std::string(size, 'x')));
            EXPECT_TRUE(reply) << name << ": " << reply.error().description();
        }
    }
}

TEST(ClientConnection, GivesUpOnAServiceThatKeepsLeaving) {
    ServiceThread service({.onConnection = [](ServiceThread&, const auto& connection) {
        connection->bidFarewell();
    }});
    EXPECT_THAT(ClientConnection::connect(service.path()), fails(ClientErrorCode::notExecuted));
    EXPECT_LE(service.waitForConnections(0), 20U);
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_THAT(ClientConnection::connect(service.path(), Deadline(begin + 50ms)),
                fails(ClientErrorCode::timedOut));
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 5s);
}

TEST(ClientConnection, GivesUpAtItsLimits) {
    const Descriptor cancel(::eventfd(0, EFD_CLOEXEC));
    const auto in = [&](std::chrono::milliseconds time) {
        return WaitLimits(Deadline::after(time), cancel.get());
    };
    std::vector<Message> held;
    ServiceThread silent(
        {.onMessage = [&](ServiceThread&, const Message& message) { held.push_back(message); }});
    auto connection = ClientConnection::connect(silent.path(), in(5s));
    ASSERT_TRUE(connection);
    EXPECT_THAT(connection->sendMessageWithReply(dictionaryOf("x"), in(50ms)),
                fails(ClientErrorCode::timedOut));
    silent.perform([&] { held.clear(); });
    const ServiceThread idle({.accepting = false}); // connects, but nobody greets
    EXPECT_THAT(ClientConnection::connect(idle.path(), in(50ms)), fails(ClientErrorCode::timedOut));
    const qv::test::TemporaryDirectory folder;
    const Descriptor full = qv::test::listenAt(folder / "full");
    ASSERT_EQ(::listen(full.get(), 0), 0);
    const test::RawClient first(folder / "full");
    EXPECT_THAT(ClientConnection::connect(folder / "full", in(50ms)),
                fails(ClientErrorCode::timedOut));
    ASSERT_EQ(::eventfd_write(cancel.get(), 1), 0);
    EXPECT_THAT(ClientConnection::connect(folder / "full", in(3s)),
                fails(ClientErrorCode::cancelled));
    EXPECT_THAT(ClientConnection::connect(idle.path(), in(60s)), fails(ClientErrorCode::cancelled));
    EXPECT_THAT(connection->sendMessageWithReply(dictionaryOf("x"), in(60s)),
                fails(ClientErrorCode::cancelled));
}

} // namespace
} // namespace qv::xpc
