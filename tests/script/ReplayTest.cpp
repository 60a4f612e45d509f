#include "platform/foundation/values/Description.h"
#include "platform/foundation/values/Exception.h"
#include "script/Steps.h"
#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

namespace qv {
namespace {

using test::number;
using test::replay;
using test::text;
using test::toolStep;

Value control(int code) { return Value::dictionary({{"operation", number(code)}}); }
Value control(int code, const Value& argument) {
    return Value::dictionary({{"operation", number(code)}, {"arg1", argument}});
}

/// Steps that leave a trace: each creates a file of its name.
class Replay : public testing::Test {
protected:
    [[nodiscard]] Value mark(std::string_view name) const {
        return toolStep("/usr/bin/touch", {(folder / name).string()});
    }
    [[nodiscard]] bool ran(std::string_view name) const { return exists(folder / name); }
    test::TemporaryDirectory folder;
    const Value fail = toolStep("/bin/false", {});
};

TEST_F(Replay, StopsAtTheFirstErrorUnlessTold) {
    const Value steps = Value::array({mark("a"), fail, mark("b"), fail});
    const test::Replayed stopped = replay(steps);
    ASSERT_FALSE(stopped.success);
    EXPECT_EQ(stopped.failedStep, &steps.asArray()[1]);
    EXPECT_EQ(stopped.error.code(), 1);
    EXPECT_TRUE(ran("a"));
    EXPECT_FALSE(ran("b"));

    QVCatalogScript script;
    ASSERT_TRUE(replay(script, Value::array({control(20, number(1))})).success);
    const test::Replayed ended = replay(script, steps);
    EXPECT_TRUE(ended.success);
    EXPECT_FALSE(ended.error);
    EXPECT_EQ(ended.failedStep, nullptr);
    EXPECT_TRUE(ran("b"));
    EXPECT_TRUE(script.executeRecordingLastStatementError()) << "of the last step";
}

TEST_F(Replay, SkipsUnknownCodes) {
    EXPECT_TRUE(replay(Value::array({control(23), control(99), control(-1),
                                     Value::dictionary({{"operation", text("99")}}), mark("a")}))
                    .success);
    EXPECT_TRUE(ran("a"));
}

// An else with no open block turns everything off until an end if.
TEST_F(Replay, SettingsInASkippedBranchDoNothing) {
    QVCatalogScript script;
    EXPECT_TRUE(replay(script, Value::array({control(18), mark("skipped"), control(20, number(5)),
                                             control(21, number(1)), control(16), control(19),
                                             mark("run")}))
                    .success);
    EXPECT_FALSE(ran("skipped"));
    EXPECT_TRUE(ran("run"));
    EXPECT_EQ(script.errorHandlingBehaviour(), 0);
    EXPECT_FALSE(script.executeWithAdminRights());
}

TEST_F(Replay, ConvertsArgumentsAsTheTableSays) {
    QVCatalogScript script;
    ASSERT_TRUE(replay(script, Value::array({control(21, number(256))})).success);
    EXPECT_FALSE(script.executeWithAdminRights()) << "only the low 8 bits count";
    ASSERT_TRUE(replay(script, Value::array({control(21, number(257))})).success);
    EXPECT_TRUE(script.executeWithAdminRights());

    const std::string file = folder.write("file", "");
    const Value steps = Value::array({Value::dictionary(
        {{"operation", number(13)}, {"URL", test::fileURL(file)}, {"arg1", number(66029)}})});
    ASSERT_TRUE(replay(steps).success);
    struct stat info{};
    ASSERT_EQ(::stat(file.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777U, 0755U) << "the low 16 bits of 0x101ED";
}

// The service's answers to such steps hold their reasons.
TEST_F(Replay, CallersFaultsRaiseAndTellTheStep) {
    const auto step = [](int operation, std::string_view key, const Value& value) {
        return Value::dictionary({{"operation", number(operation)}, {key, value}});
    };
    const std::vector<Value> bad = {
        text("no step"),
        step(99, "toURL", number(5)),
        step(12, "arg3", Value::date({1})),
        step(8, "arg1", number(1)),
        Value::dictionary(
            {{"operation", number(8)}, {"arg1", text("/bin/true")}, {"arg2", text("x")}}),
        step(10, "fromURL", text("file:///")),
    };
    for (const Value& each : bad) {
        const Value steps = Value::array({mark("a"), each, mark("c")});
        QVCatalogScript script;
        EXPECT_THROW(replay(script, steps), Exception) << description(each);
        EXPECT_EQ(script.currentStep(), &steps.asArray()[1]);
    }
    EXPECT_TRUE(ran("a"));
    EXPECT_FALSE(ran("c"));
}

TEST_F(Replay, StorageIsCopiedOnTheFirstWriteOnly) {
    const Value given =
        Value::dictionary({{"old", Value::dictionary({{"uid", number(1)}, {"gid", number(2)}})}});
    const Value steps =
        Value::array({control(22, given), Value::dictionary({{"operation", number(10)},
                                                             {"fromURL", text("file:///")},
                                                             {"arg1", text("new")}})});
    QVCatalogScript script;
    ASSERT_TRUE(replay(script, Value::array({steps.asArray()[0]})).success);
    EXPECT_TRUE(script.keyValueStorage()->sameAs(given)) << "kept as it stands";
    ASSERT_TRUE(replay(script, steps).success);
    EXPECT_NE(script.keyValueStorage()->find("new"), nullptr);
    EXPECT_NE(script.keyValueStorage()->find("old"), nullptr);
    EXPECT_EQ(given.find("new"), nullptr) << "the dictionary that was handed in stays as it was";
    // A storage that is no dictionary is held, and raises when it is used.
    EXPECT_THROW(replay(Value::array({control(22, text("x")), steps.asArray()[1]})), Exception);
}

TEST_F(Replay, ReportsProgressToTheBlock) {
    QVCatalogScript script;
    std::vector<std::pair<std::uint32_t, std::optional<Value>>> seen;
    script.setUpdateProgressBlock(
        [&](QVCatalogScript&, std::uint32_t field, const std::optional<Value>& value) {
            seen.emplace_back(field, value);
        });
    const Value step = Value::dictionary({{"operation", number(16)}, {"arg2", text("x")}});
    ASSERT_TRUE(replay(script, Value::array({control(16, number(3)), step})).success);
    EXPECT_EQ(seen, (decltype(seen){{3, std::nullopt}, {0, text("x")}}));
}

} // namespace
} // namespace qv
