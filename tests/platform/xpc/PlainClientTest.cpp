// The client in plain C against our service: two implementations of one protocol.

#include "platform/foundation/archive/KeyedArchiver.h"

#include <gtest/gtest.h>

#include "RunProgram.h"
#include "ServiceThread.h"
#include <random>

namespace qv::xpc {
namespace {

using test::runProgram;
using test::ServiceThread;

// A service that answers with bytes given beforehand and keeps what it was sent.
class PlainClientTest : public testing::Test {
protected:
    test::ProgramRun runWith(const std::string& replyData) {
        reply_ = Value::dictionary({{"replyData", Value::data(replyData)}});
        return runProgram({QV_PLAIN_CLIENT, script_, service_.path()});
    }
    qv::test::TemporaryDirectory directory_;
    std::string script_ =
        directory_.write("script", "( { operation = 8; arg1 = \"/bin/true\"; } )");
    Value reply_;
    Value request_;
    ServiceThread service_{{.onMessage = [this](ServiceThread&, const Message& message) {
        request_ = message.dictionary();
        const auto connection = message.remoteConnection();
        const auto reply = connection->createReply(message);
        connection->send(*reply, reply_);
    }}};
};

std::string archived(bool success, std::int64_t step, const Error& error) {
    std::vector<std::pair<Value, Value>> pairs = {
        {Value::string("success"), Value::boolean(success)},
        {Value::string("errorScriptStepIndex"), Value::integer(step)}};
    if (error) {
        pairs.emplace_back(Value::string("error"), Value::error(error));
    }
    return KeyedArchiver::archivedDataWithRootObject(Value::dictionary(std::move(pairs))).value();
}

Error richError() {
    return {"QVCatalogScriptErrorDomain", -7,
            Value::dictionary(
                {{"NSLocalizedDescription", Value::string("Größe \x1b[31m 𝄞")},
                 {"NSFilePath", Value::string("/tmp/x")},
                 {"list", Value::array({Value::integer(1), Value::boolean(true), Value()})},
                 {"data", Value::data("1234")},
                 {"NSUnderlyingError", Value::error(Error::posix(2))}})};
}

TEST_F(PlainClientTest, SendsTheScriptAsItIs) {
    const auto run = runWith(archived(true, -1, {}));
    EXPECT_EQ(run.output, "success: yes\nstep: -1\n");
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(request_.find("type")->asString(), "executeQVCatalogScript");
    EXPECT_EQ(request_.find("data")->asData(), qv::test::contentOf(script_));
    script_ = directory_.write("empty", "");
    EXPECT_EQ(runWith(archived(true, -1, {})).status, 0);
    EXPECT_EQ(request_.find("data")->asData(), "");
    script_ = directory_.write("long", std::string(5'000'000, '('));
    EXPECT_EQ(runWith(archived(true, -1, {})).status, 0);
    EXPECT_EQ(request_.find("data")->asData().size(), 5'000'000U);
}

TEST_F(PlainClientTest, PrintsTheErrorWithAllItCarries) {
    const auto run = runWith(archived(false, 300, richError()));
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.output,
              "success: no\n"
              "step: 300\n"
              "error domain: QVCatalogScriptErrorDomain\n"
              "error code: -7\n"
              "error text: Größe \\x1b[31m 𝄞\n"
              "user info: {NSLocalizedDescription = Größe \\x1b[31m 𝄞, NSFilePath = /tmp/x, "
              "list = (1, yes, [ ]), data = <4 bytes>, "
              "NSUnderlyingError = [ NSPOSIXErrorDomain 2 ]}\n");
}

TEST_F(PlainClientTest, SaysWhyThereIsNoAnswer) {
    const auto missing = runProgram({QV_PLAIN_CLIENT, script_, directory_ / "nobody.sock"});
    EXPECT_EQ(missing.status, 2);
    EXPECT_NE(missing.output.find("No such file or directory"), std::string::npos);
    const ServiceThread rejecting(
        {.onConnection = [](ServiceThread&, const auto& connection) { connection->cancel(); }});
    const auto rejected = runProgram({QV_PLAIN_CLIENT, script_, rejecting.path()});
    EXPECT_EQ(rejected.output, "plain-client: connection: not accepted\n");
    const ServiceThread closing({.onMessage = [](ServiceThread&, const Message& message) {
        message.remoteConnection()->cancel();
    }});
    const auto closed = runProgram({QV_PLAIN_CLIENT, script_, closing.path()});
    EXPECT_EQ(closed.output,
              "plain-client: connection: closed before the reply; whether the script "
              "was executed is not known\n");
    const ServiceThread leaving({.onConnection = [](ServiceThread&, const auto& connection) {
        connection->bidFarewell();
    }});
    EXPECT_EQ(runProgram({QV_PLAIN_CLIENT, script_, leaving.path()}).output,
              "plain-client: service: left each time before it took up the script\n");
    EXPECT_EQ(runProgram({QV_PLAIN_CLIENT, directory_ / "no script", service_.path()}).status, 2);
}

// Whatever a reply holds, the client ends by itself and says one of its three things. Built with
// sanitizers, every read beyond the reply is seen here.
TEST_F(PlainClientTest, SurvivesDamagedReplies) {
    const std::string good = archived(false, 300, richError());
    std::mt19937 random(20121); // NOLINT(bugprone-random-generator-seed): the same cases each time
    for (std::size_t size = 0; size < good.size(); size += 17) {
        const auto run = runWith(good.substr(0, size));
        EXPECT_EQ(run.status, 2) << size << run.output;
    }
    for (int i = 0; i < 150; ++i) {
        std::string damaged = good;
        const std::size_t place =
            i % 2 == 0 ? random() % good.size() : good.size() - 1 - (random() % 150); // the offsets
        damaged[place] = static_cast<char>(random());
        const auto run = runWith(damaged);
        EXPECT_TRUE(run.status >= 0 && run.status <= 2)
            << "byte " << place << ": status " << run.status << '\n'
            << run.output;
    }
}

} // namespace
} // namespace qv::xpc
