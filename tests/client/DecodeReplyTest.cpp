// What a client makes of a reply that is not as it should be.

#include "client/QVCatalogHelperClient.h"
#include "platform/foundation/archive/KeyedArchiver.h"
#include "platform/foundation/plist/PropertyList.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace qv {
namespace {

using Pairs = std::vector<std::pair<Value, Value>>;

std::string archived(const Value& root) {
    return KeyedArchiver::archivedDataWithRootObject(root).value();
}

Value result(const Value& success, const Value& index) {
    return Value::dictionary({{"success", success}, {"errorScriptStepIndex", index}});
}

const Error kCause("QVCatalogScriptErrorDomain", 7,
                   Value::dictionary({{"NSLocalizedDescription", Value::string("text")}}));

std::string goodReply() {
    return archived(Value::dictionary({{"success", Value::boolean(false)},
                                       {"errorScriptStepIndex", Value::integer(3)},
                                       {"error", Value::error(kCause)}}));
}

TEST(DecodeReply, GivesTheOutcomeUnchanged) {
    const auto failed = decodeReply(goodReply());
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

TEST(DecodeReply, RefusesWhatIsNoOutcome) {
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
        ASSERT_FALSE(outcome) << reply;
        EXPECT_EQ(outcome.error().domain(), xpc::kClientErrorDomain);
        EXPECT_EQ(outcome.error().code(), static_cast<int>(xpc::ClientErrorCode::protocol));
        EXPECT_THAT(outcome.error().localizedDescription(),
                    testing::StartsWith("The service's reply cannot be read: "));
    }
}

// A reply that was cut, or in which a byte is wrong, is refused or says something; no other harm.
TEST(DecodeReply, SurvivesDamage) {
    const std::string good = goodReply();
    for (std::size_t size = 0; size < good.size(); ++size) {
        EXPECT_FALSE(decodeReply(good.substr(0, size))) << size;
    }
    for (std::size_t place = 0; place < good.size(); ++place) {
        for (const unsigned flipped : {0x01U, 0x10U, 0x80U, 0xFFU}) {
            std::string damaged = good;
            damaged[place] = static_cast<char>(static_cast<unsigned char>(good[place]) ^ flipped);
            if (const auto outcome = decodeReply(damaged); !outcome) {
                EXPECT_EQ(outcome.error().domain(), xpc::kClientErrorDomain);
            }
        }
    }
}

} // namespace
} // namespace qv
