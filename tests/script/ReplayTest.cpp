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

TEST_F(Replay, StopsAtFirstErrorUnlessTold) {
    // Codes that nobody knows are skipped.
    const Value steps = Value::array({control(23), control(-1), mark("a"), fail, mark("b"), fail});
    const test::Replayed stopped = replay(steps);
    EXPECT_EQ(stopped.failedStep, &steps.asArray()[3]);
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

TEST_F(Replay, GivesToolsTheirArguments) {
    const std::string out = folder / "out";
    const Value steps =
        Value::array({toolStep("/bin/sh", {"-c", R"(printf '%s|' "$@" > "$0"; exit 7)", out, "a b",
                                           "", "ü", "$HOME", "*"})});
    EXPECT_EQ(replay(steps).error.code(), 7);
    EXPECT_EQ(test::contentOf(out), "a b||ü|$HOME|*|");
    // The exit codes of success are carried, not consulted.
    QVCatalogScript script;
    script.setIsPriviledged(true);
    EXPECT_EQ(script.executeTool(text("/bin/false"), Value(), Value::array({number(1)})),
              Error::withDescription(kCatalogScriptErrorDomain, 1,
                                     "Tool exited with code 1: /bin/false <null>"));
}

TEST_F(Replay, ConvertsArgumentsToTheirKinds) {
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

TEST_F(Replay, CopiesTheStorageOnFirstWrite) {
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
    // A storage that is not a dictionary is held, and raises when it is used.
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
