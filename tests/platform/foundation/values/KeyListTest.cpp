#include "platform/foundation/values/Exception.h"
#include "platform/foundation/values/Value.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace qv {
namespace {

std::vector<Value> names(std::size_t count) {
    std::vector<Value> list;
    list.reserve(count);
    for (std::size_t i = 0; i < count; ++i) {
        list.push_back(Value::string("key" + std::to_string(i * 7 % count)));
    }
    return list;
}

// Up to twelve keys are searched one by one, more by a sorted index: both must find all, and of
// repeated keys the first.
TEST(KeyList, FindsEveryKeyAtItsPlace) {
    for (const std::size_t count : {0U, 1U, 12U, 13U, 100U}) {
        const std::vector<Value> keys = names(count);
        std::vector<Value> repeated = keys;
        for (const Value& key : keys) {
            repeated.push_back(Value::string(key.asString()));
        }
        const KeyList list(repeated);
        ASSERT_EQ(list.size(), count);
        for (std::size_t i = 0; i < count; ++i) {
            EXPECT_EQ(list.indexOf(keys[i].asString()), i);
            EXPECT_TRUE(list[i].sameAs(keys[i]));
        }
        for (const std::string_view missing : {"", "key", "key100", "zzz", "aaa"}) {
            EXPECT_EQ(list.indexOf(missing), std::nullopt) << missing;
        }
    }
}

TEST(KeyList, IsSharedByCopies) {
    const KeyList list(names(3));
    KeyList copy;
    copy = list;
    EXPECT_TRUE(copy.sameAs(list));
    EXPECT_FALSE(KeyList(names(3)).sameAs(list));
    const KeyList moved = std::move(copy);
    EXPECT_TRUE(moved.sameAs(list));
    const std::vector<Value> values(3);
    EXPECT_TRUE(Value::dictionary(list, values).asDictionary().keys().sameAs(list));
    EXPECT_THROW(KeyList(std::vector<Value>{Value::integer(1)}), Exception);
    EXPECT_THROW(Value::dictionary({{Value(), Value()}}), Exception);
}

TEST(KeyList, TheLastPairOfAKeyCounts) {
    std::vector<std::pair<Value, Value>> pairs;
    for (int i = 0; i < 100; ++i) {
        pairs.emplace_back(Value::string(std::to_string(i % 40)), Value::integer(i));
    }
    const Value many = Value::dictionary(pairs);
    ASSERT_EQ(many.asDictionary().size(), 40U);
    EXPECT_EQ(*many.find("3"), Value::integer(83));
    EXPECT_EQ(*many.find("39"), Value::integer(79));
    EXPECT_EQ(many.find("40"), nullptr);
    const Value few = Value::dictionary({{"a", Value::integer(1)}, {"a", Value::integer(3)}});
    EXPECT_EQ(*few.find("a"), Value::integer(3));
    EXPECT_EQ(Value::integer(1).find("a"), nullptr);
}

} // namespace
} // namespace qv
