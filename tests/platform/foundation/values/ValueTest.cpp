#include "platform/foundation/values/Value.h"

#include "platform/foundation/values/Error.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <thread>
#include <vector>

namespace qv {
namespace {

using Kind = Value::Kind;

constexpr std::int64_t kMost = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t kLeast = std::numeric_limits<std::int64_t>::min();

// 62 bits stand in the pointer itself, wider ones on the heap: the borders are where bits get lost.
TEST(Value, IntegersOfEveryWidthComeBack) {
    for (const std::int64_t border :
         {std::int64_t{0}, std::int64_t{1} << 61, std::int64_t{1} << 62, kMost, kLeast,
          -(std::int64_t{1} << 61), -(std::int64_t{1} << 62)}) {
        for (const std::int64_t step : {-2, -1, 0, 1, 2}) {
            const auto number = static_cast<std::int64_t>(static_cast<std::uint64_t>(border) +
                                                          static_cast<std::uint64_t>(step));
            const Value value = Value::integer(number);
            EXPECT_TRUE(value.is(Kind::integer));
            EXPECT_EQ(value.asInteger(), number);
            EXPECT_EQ(Value(value).asInteger(), number);
            EXPECT_EQ(value, Value::integer(number));
            EXPECT_FALSE(value.isNull());
        }
    }
    const Value fits = Value::unsignedInteger(static_cast<std::uint64_t>(kMost));
    EXPECT_TRUE(fits.is(Kind::integer));
    EXPECT_EQ(fits.asInteger(), kMost);
    for (const std::uint64_t number : {std::uint64_t{1} << 63U, ~std::uint64_t{0}}) {
        const Value value = Value::unsignedInteger(number);
        EXPECT_TRUE(value.is(Kind::unsignedInteger));
        EXPECT_EQ(value.asUnsignedInteger(), number);
    }
}

// A failing step is found among its equals by identity.
TEST(Value, OnlyCopiesAreIdentical) {
    const auto step = [] { return Value::dictionary({{"operation", Value::integer(2)}}); };
    const Value first = step();
    const Value second = step();
    const Value list = Value::array({second, first, first});
    EXPECT_EQ(first, second);
    EXPECT_FALSE(first.sameAs(second));
    EXPECT_TRUE(list.asArray()[1].sameAs(first));
    EXPECT_TRUE(list.asArray()[2].sameAs(list.asArray()[1]));
    EXPECT_FALSE(list.asArray()[0].sameAs(first));
    EXPECT_EQ(Value(first).identity(), first.identity());
}

TEST(Value, AssignmentKeepsTheValueThatItIsMadeOf) {
    Value value = Value::array({Value::string("inner")});
    const Value& self = value;
    value = self;
    EXPECT_EQ(value.asArray().size(), 1U);
    value = value.asArray()[0]; // the old tree goes while its child stays
    EXPECT_EQ(value.asString(), "inner");
    Value moved = std::move(value);
    EXPECT_EQ(moved.asString(), "inner");
    moved = Value();
    EXPECT_TRUE(moved.isNull());
}

// Recursion would end the process here.
TEST(Value, DeepValuesAreComparedAndFreed) {
    constexpr std::size_t kDepth = 200'000;
    using Wrap = Value (*)(Value inner);
    const auto nested = [](std::size_t depth, Wrap wrap) {
        Value value = Value::string("leaf");
        for (std::size_t i = 0; i < depth; ++i) {
            value = wrap(std::move(value));
        }
        return value;
    };
    for (const auto& [depth, wrap] : std::initializer_list<std::pair<std::size_t, Wrap>>{
             {kDepth, [](Value inner) { return Value::array({std::move(inner)}); }},
             {kDepth / 4, [](Value inner) { return Value::set({std::move(inner)}); }},
             {kDepth / 4, [](Value inner) { return Value::dictionary({{"k", inner}}); }},
             {kDepth / 4, [](Value inner) {
                  return Value::error(Error("D", 1, Value::dictionary({{"k", inner}})));
              }}}) {
        const Value value = nested(depth, wrap);
        EXPECT_TRUE(value == nested(depth, wrap)) << className(value.kind());
        EXPECT_FALSE(value == nested(depth - 1, wrap)) << className(value.kind());
    }
}

// The thread sanitizer's test: many owners of the same nodes, the last one frees them.
TEST(Value, ThreadsCopyReadAndDropOneValue) {
    auto keep = std::make_unique<Value>(
        Value::dictionary({{"list", Value::array({Value::string("shared"), Value::real(1.5)})},
                           {"error", Value::error(Error::withDescription("D", 1, "text"))}}));
    const KeyList keys = keep->asDictionary().keys();
    std::vector<std::thread> threads;
    threads.reserve(8);
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([copy = *keep, keys] {
            for (int turn = 0; turn < 2000; ++turn) {
                Value mine = copy;
                const Value element = mine.find("list")->asArray()[0];
                mine = Value::dictionary(KeyList(keys), mine.asDictionary().values());
                EXPECT_EQ(element.asString(), "shared");
                EXPECT_EQ(mine.find("error")->asError().localizedDescription(), "text");
                EXPECT_EQ(mine, copy);
            }
        });
    }
    keep.reset(); // the threads are the last owners
    for (std::thread& thread : threads) {
        thread.join();
    }
}

} // namespace
} // namespace qv
