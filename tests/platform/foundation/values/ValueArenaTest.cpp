#include "platform/foundation/values/ValueArena.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <fstream>
#include <optional>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

namespace qv {
namespace {

// Short and long strings in turn, so that blocks begin and end at odd places.
std::string text(std::size_t index) {
    return std::string(index * 37 % 1500, 'x') + std::to_string(index);
}

Value record(ValueArena& arena, const KeyList& keys, std::size_t index) {
    auto list = arena.elements(Value::Kind::array, 2);
    list.values[0] = arena.string(text(index));
    list.values[1] = Value::integer(7);
    auto pairs = arena.dictionary(keys);
    pairs.values[0] = std::move(list.container);
    pairs.values[1] = arena.string("");
    return std::move(pairs.container);
}

KeyList twoKeys() {
    return KeyList(std::vector<Value>{Value::string("list"), Value::string("empty")});
}

void expectRecord(const Value& value, std::size_t index) {
    ASSERT_TRUE(value.is(Value::Kind::dictionary));
    ASSERT_EQ(value.find("empty")->asString(), "");
    const Value expected = Value::array({Value::string(text(index)), Value::integer(7)});
    ASSERT_TRUE(*value.find("list") == expected) << index;
}

// Blocks are filled and freed at the same time, and given up while values in them live on.
TEST(ValueArena, OtherThreadsFreeItsValues) {
    const KeyList keys = twoKeys();
    std::optional<ValueArena> arena(std::in_place);
    std::vector<std::thread> threads;
    threads.reserve(4);
    for (std::size_t turn = 0; turn < 4; ++turn) {
        std::vector<Value> share;
        for (std::size_t i = 0; i < 2500; ++i) {
            share.push_back(record(*arena, keys, i));
        }
        threads.emplace_back([share = std::move(share)]() mutable {
            for (std::size_t i = 0; i < share.size(); ++i) {
                expectRecord(share[i], i);
                share[i] = Value();
            }
        });
    }
    arena.reset();
    for (std::thread& thread : threads) {
        thread.join();
    }
}

std::size_t residentBytes() {
    std::ifstream statm("/proc/self/statm");
    std::size_t total = 0;
    std::size_t resident = 0;
    statm >> total >> resident;
    return resident * static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
}

// A block that is never given back would cost a long-lived service 64 MB here.
TEST(ValueArena, MemoryGoesWithTheLastValue) {
    const std::string content(1000, 'x');
    const auto fill = [&](std::size_t count) {
        ValueArena arena;
        std::vector<Value> values;
        values.reserve(count);
        for (std::size_t i = 0; i < count; ++i) {
            values.push_back(arena.string(content));
        }
        return residentBytes();
    };
    fill(1000);
    const std::size_t before = residentBytes();
    const std::size_t full = fill(std::size_t{64} << 10U);
    EXPECT_GT(full, before + (std::size_t{48} << 20U));
    EXPECT_LT(residentBytes(), before + (std::size_t{24} << 20U));
}

} // namespace
} // namespace qv
