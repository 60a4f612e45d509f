// Rules in scripts.
// 1. A script of 10,000 conditional blocks: what a block costs over the evaluation of its rule.
//    Goal: at most 2 us.
// 2. The replacement of calls: a rule of 1 MiB with 10,000 calls against one of 10 KiB with 100,
// per
//    call. Goal: linear, so about 1.

#include "rules/QVRuleChecker.h"
#include "script/QVCatalogScript.h"

#include <fmt/core.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using qv::Value;
using Clock = std::chrono::steady_clock;

constexpr int kBlocks = 10'000;
constexpr int kRounds = 15;
constexpr std::string_view kRule =
    "lastStatementExecutionError == 0 AND '10.7' BEGINSWITH '10' AND 5 IN {3, 5}";

template <typename Work> double medianMicroseconds(const Work& work) {
    std::vector<double> rounds;
    for (int round = 0; round < kRounds; ++round) {
        const auto begin = Clock::now();
        work();
        rounds.push_back(std::chrono::duration<double, std::micro>(Clock::now() - begin).count());
    }
    std::ranges::nth_element(rounds, rounds.begin() + kRounds / 2);
    return rounds[kRounds / 2];
}

void require(bool condition, const char* what) {
    if (!condition) {
        throw std::runtime_error(what);
    }
}

Value scriptOfBlocks() {
    std::vector<Value> steps;
    for (int i = 0; i < kBlocks; ++i) {
        steps.push_back(
            Value::dictionary({{"operation", Value::integer(17)}, {"arg1", Value::string(kRule)}}));
        steps.push_back(Value::dictionary({{"operation", Value::integer(18)}}));
        steps.push_back(Value::dictionary({{"operation", Value::integer(19)}}));
    }
    return Value::array(std::move(steps));
}

void measureBlocks() {
    const Value steps = scriptOfBlocks();
    const double script = medianMicroseconds([&] {
        qv::QVCatalogScript replayed;
        replayed.setIsPriviledged(true);
        require(replayed.executeRecording(steps, nullptr, nullptr), "the script failed");
    });
    const auto checker = qv::QVRuleChecker::ruleCheckerWithDefaultFunctions(true);
    checker->setKvoValues(Value::dictionary({{"lastStatementExecutionError", Value::integer(0)}}));
    const Value rule = Value::string(kRule);
    const double rules = medianMicroseconds([&] {
        for (int i = 0; i < kBlocks; ++i) {
            require(checker->runCheck(rule, nullptr), "the rule does not hold");
        }
    });
    const double more = (script - rules) / kBlocks;
    fmt::print("a conditional block {:.2f} us, its rule alone {:.2f} us: {:.2f} us more; "
               "goal 2 us: {}\n",
               script / kBlocks, rules / kBlocks, more, more <= 2 ? "goal met" : "goal missed");
}

double microsecondsACall(int calls) {
    std::string rule;
    for (int i = 0; i < calls; ++i) {
        const std::string call = fmt::format("${{nosuch(fallbackValue={};x='a b')}} == 1 AND ", i);
        rule += std::string(104 - std::min<std::size_t>(104, call.size()), ' ') + call;
    }
    const auto checker = qv::QVRuleChecker::ruleCheckerWithDefaultFunctions(true);
    return medianMicroseconds([&] {
               Value variables;
               require(!checker->preprocessCheckRule(rule, &variables).empty(), "nothing is left");
           }) /
           calls;
}

void measurePreprocessing() {
    const double small = microsecondsACall(100);
    const double large = microsecondsACall(10'000);
    fmt::print("replacing a call in 10 KiB with 100: {:.3f} us, in 1 MiB with 10,000: {:.3f} us: "
               "ratio {:.2f}\n",
               small, large, large / small);
}

} // namespace

int main() {
    try {
        measureBlocks();
        measurePreprocessing();
    } catch (const std::exception& exception) {
        fmt::print(stderr, "bench_rules: {}\n", exception.what());
        return EXIT_FAILURE;
    }
    return EXIT_SUCCESS;
}
