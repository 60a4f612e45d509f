// The answers to the sender of a script, through the socket of the running service.

#include "platform/foundation/archive/KeyedUnarchiver.h"
#include "service/ServiceTest.h"
#include "support/ErrorMatchers.h"

#include <gmock/gmock.h>

namespace qv::test {
namespace {

using testing::HasSubstr;

constexpr std::string_view kScript = "QVCatalogScriptErrorDomain";
constexpr std::string_view kCocoa = "NSCocoaErrorDomain";
const Value kType = Value::string("executeQVCatalogScript");

class Outcome : public ServiceTest {
protected:
    [[nodiscard]] Value note(std::string_view line) const { return noteStep(notes_, line); }
    const std::filesystem::path notes_ = folder_ / "notes";
};

TEST_F(Outcome, HoldsItsEntriesAndNoOther) {
    const auto resultOf = [&](const Value& request) {
        EXPECT_TRUE(client_->send(client_->request(request)));
        const std::optional<std::string> archive = client_->replyData();
        return archive ? KeyedUnarchiver::unarchiveObjectWithData(*archive).value() : Value();
    };
    const Value done = resultOf(Value::dictionary({{"type", kType}, {"data", Value::data("()")}}));
    EXPECT_EQ(done, Value::dictionary(
                        {{"success", Value::boolean(true)}, {"errorScriptStepIndex", number(-1)}}));
    EXPECT_TRUE(done.find("success")->is(Value::Kind::boolean)) << "a number is not a boolean";
    const Value nothing = Value::dictionary(
        {{"success", Value::boolean(false)}, {"errorScriptStepIndex", number(-1)}});
    EXPECT_EQ(resultOf(Value::dictionary({{"type", kType}})), nothing);
    EXPECT_EQ(resultOf(Value::dictionary({{"type", kType}, {"data", Value::data("")}})), nothing);
    EXPECT_EQ(resultOf(Value::dictionary({{"type", kType}, {"data", text("()")}})), nothing);
    client_->finish();
    EXPECT_EQ(service_->waitForExit(), 0) << "not counted, or counted for ever";
}

// Some are faults that a careless engine would take the service down with.
TEST_F(Outcome, NamesFailedStepAndError) {
    struct Row {
        int step; ///< the one that fails, between two notes; -1: the whole script
        std::string script;
        std::string_view domain;
        std::int64_t code;
        std::string_view reason;
    };
    const std::string program = folder_.write("program", "neither script nor program");
    std::filesystem::permissions(program, std::filesystem::perms(0755));
    const std::vector<Row> rows = {
        {-1, "<plist><array><dict>", kCocoa, 3840, "line 1"},
        {-1, "( { operation = 8; arg1 =", kCocoa, 3840, "line 1"},
        {-1, std::string(100'000, '('), kCocoa, 3840, "line 1"},
        {-1, "word", kScript, 0, "a script must be an array of steps, not a string"},
        {-1, "<plist><true/></plist>", kScript, 0,
         "a script must be an array of steps, not a boolean"},
        {1, "word", kScript, 0, "a step must be a dictionary, not a string"},
        {1, "{ operation = (); }", kScript, 0, "\"operation\" of the step is"},
        {1, "{ operation = 8; }", kScript, 0, "\"arg1\" of the step is missing"},
        {1, "{ operation = 8; arg1 = <00>; }", kScript, 0, "a string"},
        {1, "{ operation = 8; arg1 = /bin/true; arg2 = (<00>); }", kScript, 0,
         "an array of strings"},
        {1, "{ operation = 8; arg1 = /no/such/tool; }", kScript, 0, "No such file"},
        {1, "{ operation = 8; arg1 = bin/true; }", kScript, 0, "not absolute"},
        {1, "{ operation = 8; arg1 = /dev/null; }", kScript, 0, "regular file"},
        {1, "{ operation = 8; arg1 = \"" + program + "\"; }", kScript, 0, "format"},
        {1, "{ operation = 8; arg1 = /bin/false; }", kScript, 1, "exited with code 1: /bin/false"},
        {1, "{ operation = 8; arg1 = /bin/sh; arg2 = (\"-c\", \"kill -SEGV $$\"); }", kScript, 0,
         "Uncaught signal executing /bin/sh"},
        {1, "{ operation = 13; URL = <00>; }", kScript, 0, "\"URL\" of the step is data"},
        {1, "{ operation = 13; }", kCocoa, 4, ""},
        {1, "{ operation = 13; URL = \"http://host/x\"; }", kCocoa, 262, ""},
        {1, "{ operation = 1; URL = \"file:///nothing.app\"; }", kCocoa, 4, ""},
        {1, "{ operation = 17; arg1 = (); }", kScript, 0, "a rule"},
    };
    const std::string note =
        "{ operation = 8; arg1 = /bin/sh; arg2 = (\"-c\", \"echo x >>$0\", \"" + notes_.native() +
        "\"); }";
    for (const auto& [step, script, domain, code, reason] : rows) {
        std::filesystem::remove(notes_);
        const auto outcome = client_->executeData(
            step < 0 ? script : fmt::format("( {}, {}, {} )", note, script, note));
        ASSERT_TRUE(outcome) << script;
        EXPECT_FALSE(outcome->success) << script;
        EXPECT_EQ(outcome->errorScriptStepIndex, step) << script;
        EXPECT_THAT(outcome->error, failsWith(domain, code)) << script;
        EXPECT_THAT(outcome->error.description(), HasSubstr(reason)) << script;
        EXPECT_EQ(contentOf(notes_), step < 0 ? "" : "x\n") << script;
    }
}

// An answer longer than the bytes that may wait to be sent once closed the connection, and nobody
// knew the outcome.
TEST_F(Outcome, ShortensLongErrors) {
    const std::string letters(std::size_t{20} << 20U, 'x');
    const auto outcome =
        client_->execute(Value::array({note("first"), toolStep(letters, {}), note("third")}));
    ASSERT_TRUE(outcome && !outcome->success);
    EXPECT_EQ(outcome->errorScriptStepIndex, 1);
    EXPECT_EQ(outcome->error.domain(), kScript);
    EXPECT_THAT(outcome->error.localizedDescription(), HasSubstr("shortened"));
    EXPECT_EQ(contentOf(notes_), "first\n");
}

// Two steps that say the same are two steps, unless the list holds one of them twice.
TEST_F(Outcome, FindsTheFailedStepByIdentity) {
    const auto failingIndex = [&](const Value& step, const Value& again) {
        const auto outcome = client_->execute(Value::array({step, again}));
        return outcome && !outcome->success ? outcome->errorScriptStepIndex : -2;
    };
    const auto make = [&](std::string_view name) {
        return toolStep("/bin/mkdir", {(folder_ / name).native()});
    };
    EXPECT_EQ(failingIndex(make("equal"), make("equal")), 1);
    const Value shared = make("shared");
    EXPECT_EQ(failingIndex(shared, shared), 0);
}

// A message that is not a request to carry out a script gets no answer, has nothing done and is not
// counted. Were one answered, its answer would be the first frame to come.
TEST_F(Outcome, IsNotOwedToOtherMessages) {
    const Value data = Value::data("({ operation = 8; arg1 = /bin/echo; arg2 = (obeyed); })");
    for (const Value& type : {text("executeQVCatalogscript"), text("executeQVCatalogScript "),
                              text(""), number(1), Value::data("executeQVCatalogScript")}) {
        EXPECT_TRUE(
            client_->send(client_->request(Value::dictionary({{"type", type}, {"data", data}}))));
    }
    EXPECT_TRUE(client_->send(client_->request(Value::dictionary({{"data", data}}))));
    EXPECT_TRUE(client_->send(
        client_->request(Value::dictionary({{"type", kType}, {"data", data}}), 1, false)))
        << "no reply is expected";
    const auto other = connected();
    ASSERT_NE(other, nullptr);
    ASSERT_TRUE(other->execute(Value::array({})));
    ASSERT_TRUE(client_->send(client_->scriptRequest("()", 7)));
    const auto reply = client_->frame();
    ASSERT_TRUE(reply);
    EXPECT_EQ(reply->sequence, 7U);
    EXPECT_EQ(service_->log().find("obeyed"), std::string::npos);
    other->finish();
    client_->finish();
    EXPECT_EQ(service_->waitForExit(), 0) << "another message was counted";
}

// A hundred bytes that would be 10^30 steps if what is shared were copied, and an argument of
// 100 GB for a tool.
TEST_F(Outcome, DoesNotMultiplyWhatIsShared) {
    ASSERT_TRUE(client_->execute(Value::array({})));
    const std::size_t before = service_->residentKilobytes();
    Value bomb = Value::array({});
    for (int level = 0; level < 30; ++level) {
        bomb = Value::array(std::vector<Value>(10, bomb));
    }
    const auto outcome = client_->execute(bomb);
    ASSERT_TRUE(outcome && !outcome->success);
    EXPECT_EQ(outcome->errorScriptStepIndex, 0) << "its first step is an array";
    const Value longText = text(std::string(1 << 20, 'x'));
    const auto refused = client_->execute(Value::array(
        {Value::dictionary({{"operation", number(8)},
                            {"arg1", text("/bin/false")},
                            {"arg2", Value::array(std::vector<Value>(100'000, longText))}})}));
    ASSERT_TRUE(refused && refused->error);
    EXPECT_THAT(refused->error.localizedDescription(), HasSubstr("Argument list too long"));
    EXPECT_LT(service_->residentKilobytes(), before + 20'000);
}

// The output must not pile up in the service, whose outputs the tool has inherited.
TEST_F(Outcome, LetsAToolPrintWithoutEnd) {
    constexpr std::uint64_t kBytes = 100'000'000;
    const std::size_t before = service_->residentKilobytes();
    const auto outcome = client_->execute(
        Value::array({toolStep("/usr/bin/head", {"-c", "100000000", "/dev/zero"})}));
    EXPECT_TRUE(outcome && outcome->success);
    EXPECT_TRUE(service_->waitForPrinted(kBytes));
    EXPECT_LT(service_->residentKilobytes(), before + (kBytes / 10'000));
}

} // namespace
} // namespace qv::test
