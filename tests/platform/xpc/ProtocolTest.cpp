// The protocol as others know it: the client in plain C, and docs/protocol.md, byte for byte.

#include "platform/foundation/archive/KeyedArchiver.h"
#include "support/BuildFolder.h"
#include "support/StartedProgram.h"

#include <gtest/gtest.h>

#include "RawClient.h"
#include "ServiceThread.h"
#include <random>
#include <sstream>

namespace qv::xpc {
namespace {

using qv::test::ProgramRun;
using qv::test::runProgram;
using test::frameBytes;
using test::ServiceThread;

// A service that answers with bytes given beforehand and keeps what it was sent.
class PlainClientTest : public testing::Test {
protected:
    ProgramRun runWith(const std::string& replyData) {
        reply_ = Value::dictionary({{"replyData", Value::data(replyData)}});
        return runProgram({qv::test::built("bin/plain-client"), script_, service_.path()});
    }
    qv::test::TemporaryDirectory directory_;
    std::string script_ = directory_.write("script", "( { operation = 8; } )");
    Value reply_;
    Value request_;
    ServiceThread service_{{.onMessage = [this](ServiceThread&, const Message& message) {
        request_ = message.dictionary();
        const auto connection = message.remoteConnection();
        connection->send(*connection->createReply(message), reply_);
    }}};
};

std::string archivedFailure() {
    const Error error{
        "QVCatalogScriptErrorDomain", -7,
        Value::dictionary(
            {{"NSLocalizedDescription", Value::string("Größe \x1b[31m 𝄞")},
             {"list", Value::array({Value::integer(1), Value::boolean(true), Value()})},
             {"data", Value::data("1234")},
             {"NSUnderlyingError", Value::error(Error::posix(2))}})};
    return KeyedArchiver::archivedDataWithRootObject(
               Value::dictionary({{"success", Value::boolean(false)},
                                  {"errorScriptStepIndex", Value::integer(300)},
                                  {"error", Value::error(error)}}))
        .value();
}

TEST_F(PlainClientTest, SendsTheScriptAndPrintsTheError) {
    script_ = directory_.write("long", std::string(5'000'000, '('));
    const ProgramRun run = runWith(archivedFailure());
    EXPECT_EQ(request_.find("type")->asString(), "executeQVCatalogScript");
    EXPECT_EQ(request_.find("data")->asData(), qv::test::contentOf(script_));
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.output, "success: no\n"
                          "step: 300\n"
                          "error domain: QVCatalogScriptErrorDomain\n"
                          "error code: -7\n"
                          "error text: Größe \\x1b[31m 𝄞\n"
                          "user info: {NSLocalizedDescription = Größe \\x1b[31m 𝄞, "
                          "list = (1, yes, [ ]), data = <4 bytes>, "
                          "NSUnderlyingError = [ NSPOSIXErrorDomain 2 ]}\n");
}

TEST_F(PlainClientTest, SaysWhyThereIsNoAnswer) {
    const auto errorsOf = [&](const std::string& socket) {
        const ProgramRun run = runProgram({qv::test::built("bin/plain-client"), script_, socket});
        EXPECT_EQ(run.status, 2);
        return run.errors;
    };
    EXPECT_NE(errorsOf(directory_ / "nobody.sock").find("No such file"), std::string::npos);
    const ServiceThread rejecting(
        {.onConnection = [](ServiceThread&, const auto& connection) { connection->cancel(); }});
    EXPECT_EQ(errorsOf(rejecting.path()), "plain-client: connection: not accepted\n");
    const ServiceThread closing({.onMessage = [](ServiceThread&, const Message& message) {
        message.remoteConnection()->cancel();
    }});
    EXPECT_EQ(errorsOf(closing.path()),
              "plain-client: connection: closed before the reply; whether the script "
              "was executed is not known\n");
    const ServiceThread leaving({.onConnection = [](ServiceThread&, const auto& connection) {
        connection->bidFarewell();
    }});
    EXPECT_EQ(errorsOf(leaving.path()),
              "plain-client: service: left each time before it took up the script\n");
}

// For any reply, the client ends by itself and says one of its three outcomes. Built with
// sanitizers, every read beyond the reply is seen here.
TEST_F(PlainClientTest, SurvivesDamagedReplies) {
    const std::string good = archivedFailure();
    std::mt19937 random(20121); // NOLINT(bugprone-random-generator-seed): the same cases each time
    for (std::size_t size = 0; size < good.size(); size += 17) {
        EXPECT_EQ(runWith(good.substr(0, size)).status, 2) << size;
    }
    for (int i = 0; i < 150; ++i) {
        std::string damaged = good;
        const std::size_t place =
            i % 2 == 0 ? random() % good.size() : good.size() - 1 - (random() % 150); // the offsets
        damaged[place] = static_cast<char>(random());
        const ProgramRun run = runWith(damaged);
        EXPECT_TRUE(run.status >= 0 && run.status <= 2)
            << "byte " << place << ": status " << run.status << '\n'
            << run.errors;
    }
}

// The bytes of a block "```hex NAME"; a semicolon begins a remark.
std::string documented(const std::string& name) {
    std::istringstream document(qv::test::contentOf(QV_PROTOCOL_DOCUMENT));
    std::string line;
    std::string bytes;
    while (std::getline(document, line) && line != "```hex " + name) {
    }
    while (std::getline(document, line) && line != "```") {
        std::istringstream digits(line.substr(0, line.find(';')));
        unsigned value = 0;
        while (digits >> std::hex >> value) {
            bytes += static_cast<char>(value);
        }
    }
    return bytes;
}

Value nonce() {
    std::string bytes;
    for (char value = 0; value < 32; ++value) {
        bytes += value;
    }
    return Value::data(bytes);
}

std::string frame(FrameKind kind, const Value& dictionary, std::uint64_t sequence, bool reply) {
    return frameBytes(kind, bodyOfDictionary(dictionary).value(), sequence, reply);
}

TEST(ProtocolDocument, ShowsTheBytesThatTheCodeSends) {
    EXPECT_EQ(documented("greeting"),
              frame(FrameKind::greeting, Value::dictionary({{"nonce", nonce()}}), 0, false));
    EXPECT_EQ(documented("request"),
              frame(FrameKind::request,
                    Value::dictionary({{"type", Value::string("executeQVCatalogScript")},
                                       {"data", Value::data("({operation=2;})")},
                                       {"nonce", nonce()}}),
                    1, true));
    EXPECT_EQ(documented("farewell"), frameBytes(FrameKind::farewell, "", 0, false));
    const auto archive = KeyedArchiver::archivedDataWithRootObject(Value::dictionary(
        {{"success", Value::boolean(false)},
         {"errorScriptStepIndex", Value::integer(2)},
         {"error",
          Value::error(Error::withDescription("QVCatalogScriptErrorDomain", 0, "text"))}}));
    ASSERT_TRUE(archive);
    EXPECT_EQ(documented("archive"), *archive);
    const Value reply = Value::dictionary({{"replyData", Value::data(*archive)}});
    EXPECT_EQ(documented("reply") + documented("archive") + documented("reply-end"),
              frame(FrameKind::reply, reply, 1, false));
}

} // namespace
} // namespace qv::xpc
