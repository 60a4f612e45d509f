#include "platform/foundation/values/Error.h"
#include "platform/foundation/values/URL.h"
#include "platform/foundation/values/Value.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <limits>
#include <vector>

namespace qv {
namespace {

constexpr double kTwoTo53 = 9007199254740992.0;
constexpr double kTwoTo63 = 9223372036854775808.0;
constexpr double kTwoTo64 = 18446744073709551616.0;
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

// Values of one row are equal to each other and to nothing in another row; alone, in an array and
// in a set (which is compared in another way).
TEST(Equality, HoldsWithinGroupsOnly) {
    const auto integer = [](std::int64_t number) { return Value::integer(number); };
    constexpr std::int64_t kBig = std::int64_t{1} << 53;
    constexpr std::int64_t kMost = std::numeric_limits<std::int64_t>::max();
    const std::vector<std::vector<Value>> groups = {
        {Value(), Value()},
        {integer(1), Value::boolean(true), Value::real(1)},
        {integer(0), Value::boolean(false), Value::real(0), Value::real(-0.0)},
        {integer(2), Value::real(2)},
        {Value::real(0.5)},
        {Value::real(1.5)},
        {Value::real(-1), integer(-1)},
        {integer(kBig), Value::real(kTwoTo53)},
        {integer(kBig + 1)}, // as a double it would be the one above
        {integer(kMost)},
        {Value::unsignedInteger(std::uint64_t{1} << 63U), Value::real(kTwoTo63)},
        {integer(-kMost - 1), Value::real(-kTwoTo63)},
        {Value::unsignedInteger(~std::uint64_t{0})},
        {Value::real(kTwoTo64)},
        {Value::real(std::numeric_limits<double>::infinity())},
        {Value::real(-std::numeric_limits<double>::infinity())},
        {Value::string(""), Value::string("")},
        {Value::string("1"), Value::string("1")},
        {Value::string("\u00e9")},
        {Value::string("e\u0301")}, // decomposed: another string
        {Value::data("1"), Value::data("1")},
        {Value::data("")},
        {Value::date({1}), Value::date({1})},
        {Value::date({0}), Value::date({-0.0})},
        {Value::uid({1}), Value::uid({1})},
        {Value::url(URL::fileURLWithPath("/a")), Value::url(URL::fileURLWithPath("/a"))},
        {Value::string("file:///a")},
        {Value::error(Error("D", 1)), Value::error(Error("D", 1, Value::dictionary({})))},
        {Value::error(Error("D", (std::int64_t{1} << 32) + 1))},
        {Value::array({}), Value::array({})},
        {Value::set({}), Value::set({})},
        {Value::dictionary({}), Value::dictionary({})},
        {Value::array({integer(1), integer(2)}),
         Value::array({Value::boolean(true), Value::real(2)})},
        {Value::array({integer(2), integer(1)})},
        {Value::set({integer(1), integer(2)}), Value::set({Value::real(2), Value::boolean(true)}),
         Value::set({integer(2), integer(1), Value::real(1)})},
        {Value::set({integer(1), integer(3)})},
        {Value::dictionary({{"a", integer(1)}, {"b", integer(2)}}),
         Value::dictionary({{"b", integer(2)}, {"a", Value::boolean(true)}})},
        {Value::dictionary({{"a", integer(1)}, {"c", integer(2)}})},
        {Value::dictionary({{"a", integer(2)}, {"b", integer(1)}})},
        {Value::dictionary({{"a", Value()}})},
    };
    for (std::size_t i = 0; i < groups.size(); ++i) {
        for (std::size_t j = 0; j < groups.size(); ++j) {
            for (const Value& left : groups[i]) {
                for (const Value& right : groups[j]) {
                    EXPECT_EQ(left == right, i == j) << i << ", " << j;
                    EXPECT_EQ(Value::array({left}) == Value::array({right}), i == j)
                        << i << ", " << j;
                    EXPECT_EQ(Value::set({left}) == Value::set({right}), i == j) << i << ", " << j;
                }
            }
        }
    }
}

TEST(Equality, NotANumberEqualsNothing) {
    const Value number = Value::real(kNaN);
    const Value date = Value::date({kNaN});
    for (const Value& value : {number, date}) {
        EXPECT_FALSE(value == Value(value));
        EXPECT_FALSE(Value::array({value}) == Value::array({value}));
        EXPECT_FALSE(Value::set({value}) == Value::set({value}));
    }
}

Value setOfSets(int depth, int seed) {
    Value value = Value::set({Value::integer(seed)});
    for (int i = 0; i < depth; ++i) {
        value = Value::set({value, Value::integer(i), Value::array({value}),
                            Value::set({Value::string("x"), value})});
    }
    return value;
}

// Each level holds the one below three times: matching elements by trial would never end.
TEST(Equality, NestedSetsCompareInLinearTime) {
    EXPECT_TRUE(setOfSets(512, 1) == setOfSets(512, 1));
    EXPECT_FALSE(setOfSets(512, 1) == setOfSets(512, 2));
    EXPECT_TRUE(Value::array({setOfSets(3, 1), Value::integer(1)}) ==
                Value::array({setOfSets(3, 1), Value::boolean(true)}));
}

TEST(Equality, BigSetsAreNotComparedPairByPair) {
    constexpr std::int64_t kCount = 50'000;
    std::vector<Value> elements;
    elements.reserve(kCount);
    for (std::int64_t i = 0; i < kCount; ++i) {
        elements.push_back(i % 2 == 0 ? Value::integer(i) : Value::string(std::to_string(i)));
    }
    const Value set = Value::set(elements);
    std::ranges::reverse(elements);
    EXPECT_TRUE(set == Value::set(elements));
    elements.back() = Value::integer(-1);
    EXPECT_FALSE(set == Value::set(elements));
}

Value doubled(int levels, std::int64_t leaf) {
    Value value = Value::integer(leaf);
    for (int i = 0; i < levels; ++i) {
        value = i % 2 == 0 ? Value::array({value, value})
                           : Value::dictionary({{"a", value}, {"b", value}});
    }
    return value;
}

// A binary list of 500 objects can mean 2^500 elements.
TEST(Equality, SharedObjectsAreLookedAtOnce) {
    EXPECT_TRUE(doubled(500, 1) == doubled(500, 1));
    EXPECT_FALSE(doubled(500, 1) == doubled(500, 2));
    EXPECT_FALSE(doubled(500, 1) == doubled(501, 1));
}

} // namespace
} // namespace qv
