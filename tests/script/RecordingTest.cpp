#include "platform/foundation/plist/PropertyList.h"
#include "platform/foundation/values/Exception.h"
#include "script/ScriptEngine.h"
#include "script/Steps.h"

#include <gtest/gtest.h>

namespace qv {
namespace {

using test::number;
using test::text;

const std::optional<URL> kMissing = URL::URLWithString("file:///nonexistent/item");

/// A script without rights whose hand-off is played by the test.
class HandOff : public testing::Test {
protected:
    HandOff() {
        script.setPriviledgedExecutionBlock(
            [this](QVCatalogScript&, const Value& steps, Error* error, const Value** failed) {
                EXPECT_EQ(failed, nullptr);
                EXPECT_FALSE(*error);
                handedOver.push_back(steps);
                *error = answer;
            });
    }
    QVCatalogScript script;
    std::vector<Value> handedOver;
    Error answer;
};

TEST(Recording, BeginsWithTheSettingsAndKeepsTheOrder) {
    QVCatalogScript script;
    ASSERT_TRUE(script.beginRecording());
    EXPECT_FALSE(script.beginRecording());
    EXPECT_FALSE(script.changeModeOfItem(URL::URLWithString("file:///tmp/a"), 0755, true));
    EXPECT_FALSE(script.executeTool(text("/bin/true"), std::nullopt, Value::array({number(0)})));
    const std::optional<Value> steps = script.endRecording();
    ASSERT_TRUE(steps);
    EXPECT_EQ(*steps,
              Value::array({
                  Value::dictionary({{"operation", number(21)}, {"arg1", Value::boolean(false)}}),
                  Value::dictionary({{"operation", number(20)}, {"arg1", number(0)}}),
                  Value::dictionary({{"operation", number(22)}, {"arg1", Value::dictionary({})}}),
                  Value::dictionary({{"operation", number(13)},
                                     {"URL", text("file:///tmp/a")},
                                     {"arg1", number(0755)},
                                     {"arg2", Value::boolean(true)}}),
                  Value::dictionary({{"operation", number(8)},
                                     {"arg1", text("/bin/true")},
                                     {"arg2", Value()},
                                     {"arg3", Value::array({number(0)})}}),
              }));
    EXPECT_FALSE(script.endRecording()) << "recording has ended";
}

// The settings steps carry what is in force, not the defaults; the storage step drops its argument.
TEST(Recording, CarriesTheSettingsInForce) {
    QVCatalogScript script;
    const Value storage = Value::dictionary({{"a", number(1)}});
    script.setKeyValueStorage(storage);
    script.setErrorHandlingBehaviour(-1);
    script.setExecuteWithAdminRights(true);
    ASSERT_TRUE(script.beginRecording());
    script.setKeyValueStorage(Value::dictionary({{"other", number(2)}}));
    const Value steps = *script.endRecording();
    const std::span<const Value> list = steps.asArray();
    ASSERT_EQ(list.size(), 4U);
    EXPECT_EQ(*list[0].find("arg1"), Value::boolean(true));
    EXPECT_EQ(*list[1].find("arg1"), Value::integer(4294967295)) << "recorded unsigned";
    EXPECT_EQ(*list[2].find("arg1"), storage);
    EXPECT_EQ(*list[3].find("arg1"), storage);
}

TEST(Recording, RefusesWhatARecordCannotHold) {
    QVCatalogScript script;
    ASSERT_TRUE(script.beginRecording());
    EXPECT_EQ(script.changeModeOfItem(std::nullopt, 0755, false).code(), 4);
    EXPECT_THROW(script.updateProgressField(1, std::nullopt), Exception);
    EXPECT_EQ(script.endRecording()->asArray().size(), 3U);
    script.setKeyValueStorage(std::nullopt);
    EXPECT_THROW(script.beginRecording(), Exception);
    EXPECT_FALSE(script.endRecording()) << "nothing was begun";
}

TEST(Recording, RecordsControlSteps) {
    QVCatalogScript script;
    ASSERT_TRUE(script.beginRecording());
    script.updateProgressField(7, text("half"));
    script.beginElseBlock();
    script.endIfBlock();
    const Value steps = *script.endRecording();
    EXPECT_EQ(steps.asArray()[3],
              Value::dictionary(
                  {{"operation", number(16)}, {"arg1", number(7)}, {"arg2", text("half")}}));
    EXPECT_EQ(steps.asArray()[4], Value::dictionary({{"operation", number(18)}}));
    EXPECT_EQ(steps.asArray()[5], Value::dictionary({{"operation", number(19)}}));
}

TEST_F(HandOff, RetriesAFailureOnceAndKeepsTheFirstError) {
    EXPECT_FALSE(script.changeModeOfItem(kMissing, 0644, false)) << "the retry cured it";
    ASSERT_EQ(handedOver.size(), 1U);
    EXPECT_EQ(handedOver[0].asArray().size(), 4U);
    EXPECT_EQ(*handedOver[0].asArray()[3].find("operation"), number(13));

    answer = Error::withDescription("Other", 5, "still not");
    const Error error = script.changeModeOfItem(kMissing, 0644, false);
    ASSERT_TRUE(error);
    EXPECT_EQ(error.domain(), error_domain::kPOSIX)
        << "the direct attempt's error, not the retry's";
    EXPECT_EQ(handedOver.size(), 2U);

    script.setErrorHandlingBehaviour(0x100);
    EXPECT_TRUE(script.changeModeOfItem(kMissing, 0644, false));
    EXPECT_EQ(handedOver.size(), 2U) << "0x100 forbids the retry";
}

TEST_F(HandOff, EndsTheRecordingThatAnExceptionLeaves) {
    const Error missing = script.removeItemAtURL(std::nullopt);
    EXPECT_EQ(missing.code(), 4);
    EXPECT_EQ(script.applyOwnerAndGroupOfURL(kMissing, false, std::nullopt).localizedDescription(),
              "saveID doesn't exist")
        << "the error of the first attempt";
    script.setExecuteWithAdminRights(true);
    EXPECT_EQ(script.removeItemAtURL(std::nullopt), missing);
    EXPECT_THROW(static_cast<void>(script.executeTool(std::nullopt, Value(), Value())), Exception);
    EXPECT_TRUE(handedOver.empty());
    EXPECT_TRUE(script.beginRecording()) << "and none is left";
    EXPECT_EQ(script.removeItemAtURL(std::nullopt), missing);
}

// What names a saved owner here names it on the other side.
TEST_F(HandOff, CarriesIdentifiersOfEveryKind) {
    QVCatalogScript other;
    other.setIsPriviledged(true);
    script.setPriviledgedExecutionBlock([&](auto&, const Value& steps, Error* error, auto**) {
        const auto carried = PropertyList::dataWithPropertyList(steps, PropertyListFormat::binary);
        other.executeRecording(PropertyList::propertyListWithData(*carried)->root, error, nullptr);
    });
    const std::vector<std::pair<Value, Value>> rows = {
        {text("m"), text("m")},
        {number(1), Value::boolean(true)},
        {Value::real(2), number(2)},
        {Value::real(2.5), Value::real(2.5)},
        {Value::data("m"), Value::data("m")},
        {Value::date({0.5}), Value::date({0.5})},
        {Value::url(*kMissing), Value::url(*kMissing)},
        {Value::array({text("m")}), Value::array({text("m")})},
    };
    const auto root = URL::URLWithString("file:///");
    for (const auto& [saved, applied] : rows) {
        script.setExecuteWithAdminRights(false);
        ASSERT_FALSE(script.saveOwnerAndGroupOfURL(root, saved));
        script.setExecuteWithAdminRights(true);
        EXPECT_EQ(script.applyOwnerAndGroupOfURL(kMissing, false, applied), Error::posix(ENOENT));
    }
    EXPECT_EQ(script.keyValueStorage()->asDictionary().size(), rows.size());
    EXPECT_EQ(script.applyOwnerAndGroupOfURL(kMissing, false, number(3)).localizedDescription(),
              "saveID doesn't exist");
}

TEST_F(HandOff, HandsOverWhatNeedsAdminRightsWithoutTryingIt) {
    script.setExecuteWithAdminRights(true);
    EXPECT_FALSE(script.executeTool(text("/nonexistent/tool"), Value(), Value::array({})));
    ASSERT_EQ(handedOver.size(), 1U);
    EXPECT_EQ(*handedOver[0].asArray()[0].find("arg1"), Value::boolean(true));
    // Saving an owner has no option: it always happens where the script runs.
    EXPECT_FALSE(script.saveOwnerAndGroupOfURL(URL::URLWithString("file:///"), text("root")));
    EXPECT_EQ(handedOver.size(), 1U);
    // On the privileged side nothing is handed on.
    script.setIsPriviledged(true);
    EXPECT_TRUE(script.changeModeOfItem(kMissing, 0644, false));
    EXPECT_EQ(handedOver.size(), 1U);
}

TEST_F(HandOff, AlwaysOptionAndOwnPriviledgedBlock) {
    int executed = 0;
    const auto execute = [&] {
        ++executed;
        return Error();
    };
    const auto record = [] {
        return std::optional(Value::dictionary({{"operation", number(99)}}));
    };
    EXPECT_FALSE(ScriptEngine::of(script)._recordOrExecuteWithRecordingBlock(
        record, execute, nullptr, kAlwaysPriviledged));
    EXPECT_EQ(executed, 0);
    ASSERT_EQ(handedOver.size(), 1U);
    EXPECT_EQ(*handedOver[0].asArray()[3].find("operation"), number(99));
    const auto operations = [&] {
        static_cast<void>(script.changeModeOfItem(kMissing, 1, false));
        static_cast<void>(script.changeModeOfItem(kMissing, 2, false));
    };
    EXPECT_FALSE(ScriptEngine::of(script)._recordOrExecuteWithRecordingBlock(
        record, execute, operations, kAlwaysPriviledged));
    ASSERT_EQ(handedOver.size(), 2U);
    EXPECT_EQ(handedOver[1].asArray().size(), 5U) << "the block's own operations are handed over";
}

TEST(HandOffErrors, HaveTheirTexts) {
    QVCatalogScript script;
    const auto nothing = [] {};
    Error error = ScriptEngine::of(script)._recordAndPerformOperationInPriviledgedBlock(nothing);
    EXPECT_EQ(error, Error::withDescription(kCatalogScriptErrorDomain, 0,
                                            "No block specified for priviledged execution"));
    const auto endsRecording = [&] { static_cast<void>(script.endRecording()); };
    error = ScriptEngine::of(script)._recordAndPerformOperationInPriviledgedBlock(endsRecording);
    EXPECT_EQ(error, Error::withDescription(kCatalogScriptErrorDomain, 0,
                                            "No priviledged operations recorded"));
    ASSERT_TRUE(script.beginRecording());
    error = ScriptEngine::of(script)._recordAndPerformOperationInPriviledgedBlock(nothing);
    EXPECT_EQ(error, Error::withDescription(kCatalogScriptErrorDomain, 0,
                                            "Recording of priviledged operation failed"));
}

} // namespace
} // namespace qv
