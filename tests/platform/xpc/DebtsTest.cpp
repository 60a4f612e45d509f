#include "platform/xpc/Debts.h"

#include <gtest/gtest.h>

namespace qv::xpc {
namespace {

using namespace std::chrono_literals;

TEST(Debts, ArePaidOffAtTheirRate) {
    constexpr uid_t kUser = 1000;
    const Debts::Clock::time_point begin{};
    Debts debts(100ms); // in a second
    struct Row {
        std::chrono::milliseconds at, cost;
        bool isOverdrawn;
    };
    for (const Row& row : {Row{0ms, 100ms, false}, // no more than anybody may owe
                           {0ms, 1ms, true},
                           {11ms, 0ms, false},
                           {1000ms, 28'000ms, true}, // one look that takes long
                           {270'000ms, 0ms, true},   // for as long as it takes
                           {281'500ms, 0ms, false},
                           {900'000ms, 101ms, true}, // nothing is saved up
                           {900'000ms, -101ms, false},
                           {900'000ms, 101ms, true}}) { // nor given in advance
        debts.add(kUser, row.cost, begin + row.at);
        EXPECT_EQ(debts.isOverdrawn(kUser, begin + row.at), row.isOverdrawn)
            << row.at.count() << " " << row.cost.count();
        EXPECT_FALSE(debts.isOverdrawn(kUser + 1, begin + row.at));
    }
}

} // namespace
} // namespace qv::xpc
