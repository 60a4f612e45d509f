// Replies as a client reads them.

#include "client/QVCatalogHelperClient.h"
#include "platform/foundation/archive/KeyedArchiver.h"
#include "platform/foundation/plist/PropertyList.h"
#include "support/ErrorMatchers.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace qv {
namespace {

std::string archived(const Value& root) {
    return KeyedArchiver::archivedDataWithRootObject(root).value();
}

Value result(const Value& success, const Value& index) {
    return Value::dictionary({{"success", success}, {"errorScriptStepIndex", index}});
}

const Error kCause("QVCatalogScriptErrorDomain", 7,
                   Value::dictionary({{"NSLocalizedDescription", Value::string("text")}}));

TEST(DecodeReply, GivesTheOutcomeUnchanged) {
    const auto failed =
        decodeReply(archived(Value::dictionary({{"success", Value::boolean(false)},
                                                {"errorScriptStepIndex", Value::integer(3)},
                                                {"error", Value::error(kCause)}})));
    ASSERT_TRUE(failed);
    EXPECT_FALSE(failed->success);
    EXPECT_EQ(failed->errorScriptStepIndex, 3);
    EXPECT_EQ(failed->error, kCause);
    const auto succeeded = decodeReply(archived(result(Value::boolean(true), Value::integer(-1))));
    ASSERT_TRUE(succeeded);
    EXPECT_TRUE(succeeded->success);
    EXPECT_EQ(succeeded->errorScriptStepIndex, -1);
    EXPECT_FALSE(succeeded->error);
}

TEST(DecodeReply, RefusesEverythingElse) {
    const Value yes = Value::boolean(true);
    const Value index = Value::integer(-1);
    const std::vector<std::string> rows = {
        "",
        "no archive",
        archived(Value::string("text")),
        archived(Value::array({yes, index})),
        archived(Value::dictionary({})),
        archived(Value::dictionary({{"success", yes}})),
        archived(Value::dictionary({{"errorScriptStepIndex", index}})),
        archived(result(Value::string("yes"), index)),
        archived(result(yes, Value::string("-1"))),
        archived(Value::dictionary(
            {{"success", yes}, {"errorScriptStepIndex", index}, {"error", Value::string("text")}})),
        PropertyList::dataWithPropertyList(result(yes, index), PropertyListFormat::binary).value(),
    };
    for (const std::string& reply : rows) {
        const auto outcome = decodeReply(reply);
        ASSERT_THAT(outcome, failsWith(xpc::kClientErrorDomain,
                                       static_cast<int>(xpc::ClientErrorCode::protocol)))
            << reply;
        EXPECT_THAT(outcome.error().localizedDescription(),
                    testing::StartsWith("The service's reply cannot be read: "));
    }
}

} // namespace
} // namespace qv
