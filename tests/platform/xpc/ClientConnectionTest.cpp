#include "platform/xpc/ClientConnection.h"

#include <gtest/gtest.h>

#include "RawClient.h"
#include "ServiceThread.h"
#include <fcntl.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace qv::xpc {
namespace {

using test::frameBytes;
using test::ServiceThread;
using namespace std::chrono_literals;

template <typename Result> std::int64_t codeOf(const Result& result) {
    if (result.has_value()) {
        return 0;
    }
    EXPECT_EQ(result.error().domain(), "QVCatalogClientErrorDomain");
    EXPECT_FALSE(result.error().localizedDescription().empty());
    return result.error().code();
}

constexpr std::int64_t numberOf(ClientErrorCode code) { return static_cast<std::int64_t>(code); }

Value dictionaryOf(std::string_view text) {
    return Value::dictionary({{"text", Value::string(text)}});
}

// A service that says what it is told to, byte for byte, and closes.
class ScriptedService {
public:
    ScriptedService(std::string greeting, std::string answer)
        : listener_(test::listeningSocket(path())),
          thread_([this, greeting = std::move(greeting), answer = std::move(answer)] {
              const UniqueFd client(::accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC));
              ::send(client.get(), greeting.data(), greeting.size(), MSG_NOSIGNAL);
              if (!answer.empty()) {
                  std::array<char, 4096> request{};
                  ::recv(client.get(), request.data(), request.size(), 0);
                  ::send(client.get(), answer.data(), answer.size(), MSG_NOSIGNAL);
              }
          }) {}
    ~ScriptedService() { thread_.join(); }
    ScriptedService(const ScriptedService&) = delete;
    ScriptedService& operator=(const ScriptedService&) = delete;
    ScriptedService(ScriptedService&&) = delete;
    ScriptedService& operator=(ScriptedService&&) = delete;
    [[nodiscard]] std::string path() const { return directory_ / "scripted.sock"; }

private:
    qv::test::TemporaryDirectory directory_;
    UniqueFd listener_;
    std::thread thread_;
};

std::string greetingBytes() {
    const auto body = bodyOfDictionary(Value::dictionary({{"nonce", Value::data("nonce")}}));
    return frameBytes(FrameKind::greeting, body.value(), 0, false);
}

std::string replyBytes(std::uint64_t sequence) {
    return frameBytes(FrameKind::reply, bodyOfDictionary(dictionaryOf("ok")).value(), sequence,
                      false);
}

TEST(ClientConnection, ExchangesMessagesOfAnySizeAllowed) {
    const ServiceThread service;
    auto connection = ClientConnection::connect(service.path());
    ASSERT_TRUE(connection);
    EXPECT_NE(::fcntl(connection->socket(), F_GETFD) & FD_CLOEXEC, 0);
    for (const std::size_t size : {0UL, 10UL, 12UL << 20}) {
        const auto reply = connection->sendMessageWithReply(dictionaryOf(std::string(size, 'x')));
        ASSERT_TRUE(reply) << size;
        EXPECT_EQ(reply->find("text")->asString().size(), size);
    }
    // What cannot be sent costs nothing but itself.
    EXPECT_EQ(codeOf(connection->sendMessageWithReply(dictionaryOf(std::string(65UL << 20, 'x')))),
              numberOf(ClientErrorCode::protocol));
    EXPECT_EQ(codeOf(connection->sendMessageWithReply(Value::string("no dictionary"))),
              numberOf(ClientErrorCode::protocol));
    EXPECT_TRUE(connection->sendMessageWithReply(dictionaryOf("still there")));
}

TEST(ClientConnection, TellsApartWhyThereIsNoConnection) {
    const qv::test::TemporaryDirectory directory;
    const std::string missing = directory / "missing.sock";
    EXPECT_EQ(codeOf(ClientConnection::connect(missing)), numberOf(ClientErrorCode::unreachable));
    EXPECT_EQ(codeOf(ClientConnection::connect("")), numberOf(ClientErrorCode::unreachable));
    EXPECT_EQ(codeOf(ClientConnection::connect(std::string(200, 'p'))),
              numberOf(ClientErrorCode::unreachable));
    const std::string deserted = directory / "deserted.sock";
    test::listeningSocket(deserted).reset();
    EXPECT_EQ(codeOf(ClientConnection::connect(deserted)), numberOf(ClientErrorCode::unreachable));
    const ServiceThread rejecting(
        {.onConnection = [](ServiceThread&, const auto& connection) { connection->cancel(); }});
    EXPECT_EQ(codeOf(ClientConnection::connect(rejecting.path())),
              numberOf(ClientErrorCode::rejected));
}

TEST(ClientConnection, RefusesGreetingsAndRepliesThatAreNone) {
    for (const std::string& greeting :
         {std::string(30, 'x'), replyBytes(0), frameBytes(FrameKind::greeting, "x", 0, false),
          frameBytes(FrameKind::greeting, bodyOfDictionary(Value::dictionary({})).value(), 0,
                     false)}) {
        const ScriptedService service(greeting, "");
        EXPECT_EQ(codeOf(ClientConnection::connect(service.path())),
                  numberOf(ClientErrorCode::protocol));
    }
    for (const std::string& answer : {std::string(30, 'x'), replyBytes(2), greetingBytes(),
                                      frameBytes(FrameKind::reply, "bplist00", 1, false)}) {
        const ScriptedService service(greetingBytes(), answer);
        auto connection = ClientConnection::connect(service.path());
        ASSERT_TRUE(connection);
        EXPECT_EQ(codeOf(connection->sendMessageWithReply(dictionaryOf("x"))),
                  numberOf(ClientErrorCode::protocol));
        EXPECT_EQ(codeOf(connection->sendMessageWithReply(dictionaryOf("x"))),
                  numberOf(ClientErrorCode::interrupted))
            << "what comes after a wrong reply belongs to no request";
    }
    const ScriptedService good(greetingBytes(), replyBytes(1));
    EXPECT_TRUE(ClientConnection::connect(good.path())->sendMessageWithReply(dictionaryOf("x")));
}

TEST(ClientConnection, ReportsAServiceThatClosesInsteadOfAnswering) {
    const ServiceThread service({.onMessage = [](ServiceThread&, const Message& message) {
        message.remoteConnection()->cancel();
    }});
    auto connection = ClientConnection::connect(service.path());
    ASSERT_TRUE(connection);
    // Longer than the socket holds: the service's end comes amid sending, too.
    EXPECT_EQ(codeOf(connection->sendMessageWithReply(dictionaryOf("x"))),
              numberOf(ClientErrorCode::interrupted));
    const ScriptedService deaf(greetingBytes(), "");
    auto cut = ClientConnection::connect(deaf.path());
    ASSERT_TRUE(cut);
    EXPECT_EQ(codeOf(cut->sendMessageWithReply(dictionaryOf(std::string(5'000'000, 'x')))),
              numberOf(ClientErrorCode::interrupted));
}

TEST(ClientConnection, GivesUpAtItsDeadline) {
    const auto soon = [] { return std::chrono::steady_clock::now() + 50ms; };
    std::vector<Message> held;
    ServiceThread silent(
        {.onMessage = [&](ServiceThread&, const Message& message) { held.push_back(message); }});
    auto connection = ClientConnection::connect(silent.path(), soon() + 5s);
    ASSERT_TRUE(connection);
    EXPECT_EQ(codeOf(connection->sendMessageWithReply(dictionaryOf("x"), soon())),
              numberOf(ClientErrorCode::timedOut));
    silent.perform([&] { held.clear(); });
    const ServiceThread idle({.accepting = false}); // connects, but nobody greets
    EXPECT_EQ(codeOf(ClientConnection::connect(idle.path(), soon())),
              numberOf(ClientErrorCode::timedOut));
}

} // namespace
} // namespace qv::xpc
