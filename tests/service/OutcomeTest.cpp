// What a script's sender is answered, through the socket of the running service.

#include "platform/foundation/archive/KeyedUnarchiver.h"
#include "platform/foundation/plist/PropertyList.h"
#include "service/RawList.h"
#include "service/ServiceTest.h"

#include <gmock/gmock.h>

namespace qv::test {
namespace {

using testing::HasSubstr;

constexpr std::string_view kScriptDomain = "QVCatalogScriptErrorDomain";

class Outcome : public ServiceTest {
protected:
    // The result dictionary of a request, as it stands in the archive.
    Value resultOf(const Value& request) {
        EXPECT_TRUE(client_->send(client_->request(request)));
        const std::optional<std::string> archive = client_->replyData();
        return archive ? KeyedUnarchiver::unarchiveObjectWithData(*archive).value() : Value();
    }
    void expectNothingDone(const Value& result) {
        ASSERT_TRUE(result.is(Value::Kind::dictionary));
        EXPECT_EQ(*result.find("success"), Value::boolean(false));
        EXPECT_EQ(*result.find("errorScriptStepIndex"), number(-1));
        EXPECT_EQ(result.find("error"), nullptr);
    }
};

const Value kType = Value::string("executeQVCatalogScript");

TEST_F(Outcome, ASuccessHasNoErrorEntry) {
    const auto file = folder_.write("file", "");
    const Value script =
        Value::array({noteStep(file, "done"), Value::dictionary({{"operation", number(13)},
                                                                 {"URL", fileURL(file)},
                                                                 {"arg1", number(0640)}})});
    const auto list = PropertyList::dataWithPropertyList(script, PropertyListFormat::xml).value();
    const Value result =
        resultOf(Value::dictionary({{"type", kType}, {"data", Value::data(list)}}));
    EXPECT_EQ(*result.find("success"), Value::boolean(true));
    EXPECT_TRUE(result.find("success")->is(Value::Kind::boolean)) << "a number is no boolean";
    EXPECT_EQ(*result.find("errorScriptStepIndex"), number(-1));
    EXPECT_EQ(result.find("error"), nullptr);
    EXPECT_EQ(contentOf(file), "done\n");
    EXPECT_EQ(std::filesystem::status(file).permissions(), std::filesystem::perms(0640));
}

TEST_F(Outcome, AFailingStepIsNamedAndTheRestIsLeft) {
    const auto file = folder_ / "file";
    const auto outcome = client_->execute(Value::array(
        {noteStep(file, "first"), toolStep("/bin/false", {"x"}), noteStep(file, "third")}));
    ASSERT_TRUE(outcome);
    EXPECT_FALSE(outcome->success);
    EXPECT_EQ(outcome->errorScriptStepIndex, 1);
    EXPECT_EQ(outcome->error.domain(), kScriptDomain);
    EXPECT_EQ(outcome->error.code(), 1);
    EXPECT_THAT(outcome->error.localizedDescription(),
                HasSubstr("Tool exited with code 1: /bin/false"));
    EXPECT_EQ(contentOf(file), "first\n");
}

TEST_F(Outcome, DataThatIsMissingEmptyOrOfAnotherTypeIsAnsweredWithoutAnError) {
    expectNothingDone(resultOf(Value::dictionary({{"type", kType}})));
    expectNothingDone(resultOf(Value::dictionary({{"type", kType}, {"data", Value::data("")}})));
    expectNothingDone(resultOf(Value::dictionary({{"type", kType}, {"data", text("()")}})));
    client_->finish();
    EXPECT_EQ(service_->waitForExit(), 0) << "not counted, or counted for ever";
}

TEST_F(Outcome, DataThatIsNoPropertyListIsAnsweredWithTheParsersError) {
    const auto outcome = client_->executeData("<plist><array><dict>");
    ASSERT_TRUE(outcome);
    EXPECT_FALSE(outcome->success);
    EXPECT_EQ(outcome->errorScriptStepIndex, -1);
    EXPECT_EQ(outcome->error.domain(), "NSCocoaErrorDomain");
    EXPECT_EQ(outcome->error.code(), 3840);
    EXPECT_THAT(outcome->error.description(), HasSubstr("line 1"));
    client_->finish();
    EXPECT_EQ(service_->waitForExit(), 0) << "not counted, or counted for ever";
}

TEST_F(Outcome, ARootThatIsNoArrayIsAnsweredWithTheReason) {
    RawList null;
    null.add(std::string(1, '\0'));
    const std::vector<std::pair<std::string, std::string_view>> rows = {
        {"{ operation = 8; }", "not a dictionary"},
        {"word", "not a string"},
        {"<00ff>", "not data"},
        {"<plist><integer>5</integer></plist>", "not a number"},
        {"<plist><true/></plist>", "not a boolean"},
        {"<plist><real>1.5</real></plist>", "not a number"},
        {"<plist><date>2012-05-01T00:00:00Z</date></plist>", "not a date"},
        {null.bytes(), "not the null object"},
    };
    for (const auto& [script, kind] : rows) {
        const auto outcome = client_->executeData(script);
        ASSERT_TRUE(outcome) << script;
        EXPECT_FALSE(outcome->success) << script;
        EXPECT_EQ(outcome->errorScriptStepIndex, -1) << script;
        EXPECT_EQ(outcome->error.domain(), kScriptDomain) << script;
        EXPECT_THAT(
            outcome->error.localizedDescription(),
            testing::AllOf(HasSubstr("a script must be an array of steps"), HasSubstr(kind)));
    }
    EXPECT_TRUE(service_->waitForLog("script raised an exception", rows.size()));
}

// Each is a caller's fault that a careless engine would take the service down with.
TEST_F(Outcome, AFaultOfTheScriptNamesItsStepAndIsSurvived) {
    const auto notExecutable = folder_.write("not executable", "");
    const auto noProgram = folder_.write("no program", "neither script nor program");
    std::filesystem::permissions(noProgram, std::filesystem::perms(0755));
    const auto step = [](std::int64_t operation, std::string_view key, const Value& value) {
        return Value::dictionary({{"operation", number(operation)}, {key, value}});
    };
    const Value good = toolStep("/bin/true", {});
    const std::vector<std::pair<Value, std::string_view>> rows = {
        {text("no dictionary"), "not a string"},
        {Value::array({}), "not an array"},
        {Value(), "not the null object"},
        {toolStep("/no/such/tool", {}), "No such file"},
        {toolStep("/bin", {}), "directory"},
        {toolStep("bin/true", {}), "not absolute"},
        {toolStep("", {}), "not set"},
        {toolStep(notExecutable.native(), {}), "Permission denied"},
        {toolStep(noProgram.native(), {}), "format"},
        {toolStep("/dev/null", {}), "regular file"},
        {Value::dictionary({{"operation", number(8)}}), "\"arg1\" of the step is missing"},
        {step(8, "arg1", number(5)), "a string"},
        {Value::dictionary({{"operation", number(8)},
                            {"arg1", text("/bin/true")},
                            {"arg2", Value::array({number(1)})}}),
         "an array of strings"},
        {step(13, "URL", number(5)), "\"URL\" of the step is a number"},
        {step(13, "arg1", Value::date({1})), "it must be a number"},
        {step(17, "arg1", Value::array({})), "a rule"},
        {Value::dictionary({{"operation", Value::array({})}}), "\"operation\" of the step is"},
    };
    for (const auto& [bad, reason] : rows) {
        const auto outcome = client_->execute(Value::array({good, bad, good}));
        ASSERT_TRUE(outcome) << reason;
        EXPECT_FALSE(outcome->success) << reason;
        EXPECT_EQ(outcome->errorScriptStepIndex, 1) << outcome->error.description();
        EXPECT_EQ(outcome->error.domain(), kScriptDomain) << reason;
        EXPECT_THAT(outcome->error.localizedDescription(), HasSubstr(reason));
    }
}

TEST_F(Outcome, UnknownCodesAreSkippedAndMissingFieldsAreErrors) {
    const auto file = folder_ / "file";
    const auto skipped = client_->execute(
        Value::array({Value::dictionary({{"operation", number(23)}}),
                      Value::dictionary({{"operation", number(-1)}, {"arg1", number(1)}}),
                      Value::dictionary({{"operation", text("99")}}), noteStep(file, "done")}));
    EXPECT_TRUE(skipped && skipped->success);
    EXPECT_EQ(contentOf(file), "done\n");
    const std::vector<std::pair<Value, std::int64_t>> rows = {
        {Value::dictionary({{"operation", number(13)}}), 4},
        {Value::dictionary({{"operation", number(13)}, {"URL", text("http://host/x")}}), 262},
    };
    for (const auto& [step, code] : rows) {
        const auto outcome = client_->execute(Value::array({step}));
        ASSERT_TRUE(outcome && !outcome->success);
        EXPECT_EQ(outcome->errorScriptStepIndex, 0);
        EXPECT_EQ(outcome->error.domain(), "NSCocoaErrorDomain");
        EXPECT_EQ(outcome->error.code(), code);
    }
}

// Longer than what may wait to be sent: the connection was closed, and nobody knew what was done.
TEST_F(Outcome, AnErrorThatHoldsTooMuchIsAnsweredWithItsBeginning) {
    const auto file = folder_ / "file";
    const std::string letters(std::size_t{20} << 20U, 'x');
    const std::string path = std::string(std::size_t{20} << 20U, '/') + "x";
    for (const Value& failing :
         {toolStep(letters, {}),
          Value::dictionary({{"operation", number(2)}, {"URL", text("file://" + path)}})}) {
        const auto outcome = client_->execute(Value::array({noteStep(file, "first"), failing}));
        ASSERT_TRUE(outcome);
        EXPECT_FALSE(outcome->success);
        EXPECT_EQ(outcome->errorScriptStepIndex, 1);
        EXPECT_NE(outcome->error.domain(), "");
        EXPECT_THAT(outcome->error.localizedDescription(), HasSubstr("shortened"));
    }
    EXPECT_EQ(contentOf(file), "first\nfirst\n");
}

TEST_F(Outcome, AToolThatASignalEndsFails) {
    const auto outcome =
        client_->execute(Value::array({toolStep("/bin/sh", {"-c", "kill -SEGV $$"})}));
    ASSERT_TRUE(outcome && !outcome->success);
    EXPECT_EQ(outcome->errorScriptStepIndex, 0);
    EXPECT_EQ(outcome->error.code(), 0);
    EXPECT_THAT(outcome->error.localizedDescription(),
                HasSubstr("Uncaught signal executing /bin/sh"));
}

// Two steps that say the same are two steps, unless the list holds one of them twice.
TEST_F(Outcome, TheFailedStepIsFoundByIdentity) {
    const auto failsTheSecondTime = [this](bool shared) {
        RawList list;
        // 0: root; 1, 2: the steps; then their keys and values.
        list.add(RawList::array(shared ? RawList::References{1, 1, 1} : RawList::References{1, 2}));
        list.add(RawList::dictionary({3, 4, 5}, {6, 7, 8}));
        list.add(RawList::dictionary({3, 4, 5}, {6, 7, 8}));
        for (const char* key : {"operation", "arg1", "arg2"}) {
            list.add(RawList::text(key));
        }
        list.add(RawList::number(8));
        list.add(RawList::text("/bin/mkdir"));
        list.add(RawList::array({9}));
        list.add(RawList::text((folder_ / (shared ? "shared" : "equal")).native()));
        const auto outcome = client_->executeData(list.bytes());
        EXPECT_TRUE(outcome && !outcome->success);
        return outcome ? outcome->errorScriptStepIndex : -2;
    };
    EXPECT_EQ(failsTheSecondTime(false), 1);
    EXPECT_EQ(failsTheSecondTime(true), 0);
}

// What is no request to carry out a script gets no answer, has nothing done and is not counted.
TEST_F(Outcome, OtherMessagesArePassedOver) {
    const auto file = folder_ / "file";
    const Value data = Value::data(binary(Value::array({noteStep(file, "done")})));
    const auto typed = [&](const Value& type) {
        return client_->request(Value::dictionary({{"type", type}, {"data", data}}), 1);
    };
    EXPECT_TRUE(client_->send(typed(text("executeQVCatalogscript"))));
    EXPECT_TRUE(client_->send(typed(text("executeQVCatalogScript "))));
    EXPECT_TRUE(client_->send(typed(text(""))));
    EXPECT_TRUE(client_->send(typed(number(1))));
    EXPECT_TRUE(client_->send(typed(Value::data("executeQVCatalogScript"))));
    EXPECT_TRUE(client_->send(client_->request(Value::dictionary({{"data", data}}), 1)));
    EXPECT_TRUE(client_->send(
        client_->request(Value::dictionary({{"type", kType}, {"data", data}}), 1, false)))
        << "no reply is expected";
    const auto other = connected();
    ASSERT_NE(other, nullptr);
    EXPECT_TRUE(client_->send(typed(text("one more, so that all before it have been read"))));
    client_->finish();
    EXPECT_TRUE(service_->waitForLog("XPC Error"));
    EXPECT_EQ(contentOf(file), "");
    ASSERT_TRUE(other->send(other->scriptRequest("()", 7)));
    const auto reply = other->frame();
    ASSERT_TRUE(reply) << "the service ended with a client that it should not have counted";
    EXPECT_EQ(reply->sequence, 7U);
    other->finish();
    EXPECT_EQ(service_->waitForExit(), 0);
}

// Were one of them answered, the answer to the last would not be the first frame to come.
TEST_F(Outcome, OtherMessagesAreNotAnswered) {
    ASSERT_TRUE(client_->send(
        client_->request(Value::dictionary({{"type", text("EXECUTEQVCATALOGSCRIPT")}}), 1)));
    ASSERT_TRUE(client_->send(client_->request(Value::dictionary({{"type", kType}}), 2, false)));
    ASSERT_TRUE(client_->send(client_->scriptRequest("()", 3)));
    const auto reply = client_->frame();
    ASSERT_TRUE(reply);
    EXPECT_EQ(reply->sequence, 3U);
}

} // namespace
} // namespace qv::test
