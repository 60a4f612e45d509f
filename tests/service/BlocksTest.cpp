// Conditional blocks as a script's sender sees them: through the running service, by what they left
// behind in the file system.

#include "service/ServiceTest.h"

#include <algorithm>
#include <initializer_list>

namespace qv::test {
namespace {

Value control(int code) { return Value::dictionary({{"operation", number(code)}}); }
Value control(int code, const Value& argument) {
    return Value::dictionary({{"operation", number(code)}, {"arg1", argument}});
}
Value ifHolds(std::string_view rule) { return control(17, text(rule)); }
const Value kElse = control(18);
const Value kEndIf = control(19);
const Value kGoOn = control(20, number(1));
const Value kStop = control(20, number(0));
const Value kFail = toolStep("/bin/false", {});
const Value kProgress =
    Value::dictionary({{"operation", number(16)}, {"arg1", number(1)}, {"arg2", text("x")}});
constexpr std::string_view kAfterFailure = "lastStatementExecutionError == 1";

class Blocks : public ServiceTest {
protected:
    void SetUp() override {
        ServiceTest::SetUp();
        if (!IsSkipped()) {
            keepServing();
        }
    }
    [[nodiscard]] Value note(std::string_view line) const {
        return noteStep(folder_ / "notes", line);
    }
    // Which notes a script leaves, one after the other; "failed" when it does not succeed.
    std::string notesOf(std::initializer_list<Value> steps) {
        const auto notes = folder_ / "notes";
        std::filesystem::remove(notes);
        const auto outcome = client_->execute(Value::array(steps));
        if (!outcome || !outcome->success) {
            return "failed";
        }
        std::string lines = std::filesystem::exists(notes) ? contentOf(notes) : "";
        std::ranges::replace(lines, '\n', ' ');
        return lines;
    }
};

TEST_F(Blocks, TakeOneBranch) {
    const auto branches = [&](std::string_view rule) {
        return notesOf({ifHolds(rule), note("P"), kElse, note("Q"), kEndIf, note("R")});
    };
    EXPECT_EQ(branches("1 == 1"), "P R ");
    EXPECT_EQ(branches("1 == 2"), "Q R ");
    EXPECT_EQ(branches("'10.7' BEGINSWITH '10' AND NOT (2 IN {1, 3})"), "P R ");
    EXPECT_EQ(branches("${nosuch(fallbackValue=3;x)} == '3'"), "P R ");
    EXPECT_EQ(branches("no such key"), "Q R ") << "a rule that cannot be evaluated does not hold";
    EXPECT_EQ(branches("nosuchkey == 1"), "Q R ");
    EXPECT_EQ(branches("${f(x"), "Q R ");
    EXPECT_TRUE(service_->waitForLog("Unterminated function: ${f(x"));
    EXPECT_TRUE(
        service_->waitForLog("-[QVRuleChecker runCheck:errorOccured:]: caught exception: ", 3));
}

TEST_F(Blocks, NestAndNeedNoBalance) {
    EXPECT_EQ(notesOf({ifHolds("1 == 2"), ifHolds("1 == 1"), note("P"), kElse, note("Q"), kEndIf,
                       note("R"), kEndIf, note("S")}),
              "S ")
        << "inside a branch that is not taken";
    EXPECT_EQ(notesOf({ifHolds("1 == 1"), ifHolds("1 == 2"), note("P"), kElse, note("Q"), kEndIf,
                       note("R"), kElse, note("T"), kEndIf, note("S")}),
              "Q R S ");
    EXPECT_EQ(notesOf({ifHolds("1 == 2"), note("P"), kElse, ifHolds("1 == 1"), note("Q"), kElse,
                       note("R"), kEndIf, note("S"), kEndIf}),
              "Q S ");
    EXPECT_EQ(notesOf({note("a"), kElse, note("b"), kFail, kEndIf, note("c"), kEndIf, note("d")}),
              "a c d ")
        << "an else without an if, and one end if too many";
    EXPECT_EQ(notesOf({ifHolds("1 == 2"), note("a")}), "") << "left open";
    EXPECT_EQ(notesOf({note("fresh")}), "fresh ") << "each script begins anew";
}

TEST_F(Blocks, KnowWhetherTheStepBeforeFailed) {
    EXPECT_EQ(notesOf({kGoOn, kFail, ifHolds(kAfterFailure), note("cure"), kElse, note("well"),
                       kEndIf, kStop, note("end")}),
              "cure end ");
    EXPECT_EQ(notesOf({kGoOn, note("step"), ifHolds(kAfterFailure), note("cure"), kElse,
                       note("well"), kEndIf}),
              "step well ");
    EXPECT_EQ(notesOf({kGoOn, kFail, kProgress, ifHolds(kAfterFailure), note("cure"), kElse,
                       note("forgotten"), kEndIf}),
              "forgotten ")
        << "only the very step before counts";
    EXPECT_EQ(notesOf({kGoOn, kFail, ifHolds(kAfterFailure), ifHolds(kAfterFailure), note("inner"),
                       kEndIf, note("outer"), kEndIf}),
              "outer ");
    EXPECT_EQ(notesOf({ifHolds("1 == 2"), kGoOn, kEndIf, kFail, note("not reached")}), "failed")
        << "a setting in a branch that is not taken is not made";
}

TEST_F(Blocks, ARuleOfAnotherClassIsAFaultOfTheScript) {
    const auto outcome = client_->execute(Value::array({note("a"), control(17, number(5))}));
    ASSERT_TRUE(outcome);
    EXPECT_FALSE(outcome->success);
    EXPECT_EQ(outcome->errorScriptStepIndex, 1);
    EXPECT_EQ(notesOf({ifHolds("1 == 2"), control(17, number(5)), kEndIf, kEndIf, note("b")}), "b ")
        << "a rule that is not asked for is not looked at";
    EXPECT_EQ(notesOf({control(17), note("c"), kElse, note("d"), kEndIf}), "d ") << "no rule";
}

// A step of the storage stays the storage: what is saved afterwards joins it, and a block may stand
// between.
TEST_F(Blocks, TheStorageOutlivesBlocks) {
    const auto file = folder_.write("file", "");
    const Value storage = Value::dictionary(
        {{"given", Value::dictionary({{"uid", number(4711)}, {"gid", number(4712)}})}});
    const Value save = Value::dictionary(
        {{"operation", number(10)}, {"fromURL", fileURL(file)}, {"arg1", text("saved")}});
    const auto apply = [&](std::string_view name) {
        return Value::dictionary({{"operation", number(11)},
                                  {"toURL", fileURL(file)},
                                  {"arg1", Value::boolean(false)},
                                  {"arg2", text(name)}});
    };
    const auto owner = [&] {
        struct stat info{};
        return ::stat(file.c_str(), &info) == 0 ? info.st_uid : 0U;
    };
    EXPECT_EQ(notesOf({control(22, storage), save, ifHolds("1 == 1"), apply("given"), kEndIf}), "");
    EXPECT_EQ(owner(), 4711U);
    EXPECT_EQ(notesOf({save, control(22, storage), apply("given"), ifHolds("1 == 2"),
                       control(22, Value::dictionary({})), kEndIf, save, apply("saved")}),
              "");
    EXPECT_EQ(owner(), 4711U);
}

} // namespace
} // namespace qv::test
