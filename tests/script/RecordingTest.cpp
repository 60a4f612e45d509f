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

// The steps of the settings hold what is in force; that of the storage drops its argument.
TEST(Recording, BeginsWithTheSettingsInForce) {
    QVCatalogScript script;
    const Value storage = Value::dictionary({{"a", number(1)}});
    script.setKeyValueStorage(storage);
    script.setErrorHandlingBehaviour(-1);
    script.setExecuteWithAdminRights(true);
    ASSERT_TRUE(script.beginRecording());
    EXPECT_FALSE(script.beginRecording());
    script.setKeyValueStorage(Value::dictionary({{"other", number(2)}}));
    EXPECT_FALSE(script.setPreferencesForApplicationID(text("a"), {}, {}, {}, text("h")));
    const auto step = [](int operation, const Value& argument) {
        return Value::dictionary({{"operation", number(operation)}, {"arg1", argument}});
    };
    EXPECT_EQ(
        script.endRecording(),
        Value::array({step(21, Value::boolean(true)), step(20, number(4294967295)),
                      step(22, storage), step(22, storage),
                      Value::dictionary(
                          {{"operation", number(9)}, {"arg1", text("a")}, {"arg5", text("h")}})}));
    EXPECT_FALSE(script.endRecording()) << "recording has ended";
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

TEST_F(HandOff, RetriesOnceAndKeepsFirstError) {
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

TEST_F(HandOff, EndsRecordingThatAnExceptionLeaves) {
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

// An identifier that names a saved owner here names it on the other side.
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

TEST_F(HandOff, TriesNothingThatNeedsAdminRights) {
    script.setExecuteWithAdminRights(true);
    EXPECT_FALSE(script.executeTool(text("/nonexistent/tool"), Value(), Value::array({})));
    ASSERT_EQ(handedOver.size(), 1U);
    EXPECT_EQ(*handedOver[0].asArray()[0].find("arg1"), Value::boolean(true));
    // Saving an owner has no option: it always happens where the script runs.
    EXPECT_FALSE(script.saveOwnerAndGroupOfURL(URL::URLWithString("file:///"), text("root")));
    EXPECT_EQ(handedOver.size(), 1U);
    // Nothing is handed on on the privileged side.
    script.setIsPriviledged(true);
    EXPECT_TRUE(script.changeModeOfItem(kMissing, 0644, false));
    EXPECT_EQ(handedOver.size(), 1U);
}

TEST_F(HandOff, HandsOverTheOperationsOfABlock) {
    const auto never = [] {
        ADD_FAILURE() << "carried out here";
        return Error();
    };
    const auto operations = [&] {
        EXPECT_FALSE(script.changeModeOfItem(kMissing, 1, false));
        EXPECT_FALSE(script.changeModeOfItem(kMissing, 2, false));
    };
    EXPECT_FALSE(ScriptEngine::of(script)._recordOrExecuteWithRecordingBlock(
        nullptr, never, operations, kAlwaysPriviledged));
    EXPECT_FALSE(script.makeProcessAXTrusted(kMissing)) << "without admin rights";
    ASSERT_EQ(handedOver.size(), 2U);
    EXPECT_EQ(handedOver[0].asArray().size(), 5U);
    EXPECT_EQ(*handedOver[1].asArray()[3].find("operation"), number(14));
}

} // namespace
} // namespace qv
