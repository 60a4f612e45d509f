// Measures the replay of 1,000,000 skipped steps: the engine's own cost per step. Beside it, in the
// same run, the time to read the memory that the steps take once, which no replay can go below, and
// the number of allocations, which must not grow with the steps.

#include "platform/foundation/plist/PropertyList.h"
#include "platform/foundation/values/Value.h"
#include "script/QVCatalogScript.h"
#include "support/CountedAllocations.h"

#include <fmt/core.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <numeric>
#include <stdexcept>
#include <vector>

namespace {

using qv::Value;

constexpr std::int64_t kSteps = 1'000'000;
constexpr int kRounds = 9;

// The script as it comes to the service, read from a binary list. The first step, an else without
// an if, turns execution off.
Value skippedScript() {
    std::vector<Value> steps;
    steps.reserve(kSteps + 1);
    steps.push_back(Value::dictionary({{"operation", Value::integer(18)}}));
    for (std::int64_t i = 0; i < kSteps; ++i) {
        const Value url =
            Value::string(fmt::format("file:///opt/prefix/dir{}/file-{:06}.dat", i % 1000, i));
        switch (i % 3) {
        case 0:
            steps.push_back(Value::dictionary({{"operation", Value::integer(13)},
                                               {"URL", url},
                                               {"arg1", Value::integer(493)},
                                               {"arg2", Value::boolean(false)}}));
            break;
        case 1:
            steps.push_back(Value::dictionary({{"operation", Value::integer(10)},
                                               {"fromURL", url},
                                               {"arg1", Value::string("owner")}}));
            break;
        default:
            steps.push_back(Value::dictionary({{"operation", Value::integer(99)}, {"URL", url}}));
        }
    }
    const auto list = qv::PropertyList::dataWithPropertyList(Value::array(std::move(steps)),
                                                             qv::PropertyListFormat::binary);
    return qv::PropertyList::propertyListWithData(list.value()).value().root;
}

template <typename Work> double medianNanoseconds(const Work& work) {
    std::vector<double> rounds;
    for (int round = 0; round < kRounds; ++round) {
        const auto begin = std::chrono::steady_clock::now();
        work();
        rounds.push_back(
            std::chrono::duration<double, std::nano>(std::chrono::steady_clock::now() - begin)
                .count());
    }
    std::ranges::nth_element(rounds, rounds.begin() + kRounds / 2);
    return rounds[kRounds / 2];
}

void run() {
    const Value steps = skippedScript();
    std::uint64_t allocated = 0;
    const double replay = medianNanoseconds([&] {
        qv::QVCatalogScript script;
        script.setIsPriviledged(true);
        const std::uint64_t before = qv::bench::allocations;
        if (!script.executeRecording(steps, nullptr, nullptr)) {
            throw std::runtime_error("the replay failed");
        }
        allocated = qv::bench::allocations - before;
    });
    // The pointers of the steps and of their fields, followed once: what any reader must touch.
    std::uint64_t sum = 0;
    const double touch = medianNanoseconds([&] {
        for (const Value& step : steps.asArray()) {
            for (const Value& field : step.asDictionary().values()) {
                sum += field.identity();
            }
        }
    });
    fmt::print("replay of {} skipped steps: {:.1f} ns a step, {} allocations in all\n", kSteps,
               replay / kSteps, allocated);
    fmt::print("touching the same steps:       {:.1f} ns a step; ratio {:.2f} (checksum {})\n",
               touch / kSteps, replay / touch, sum % 10);
}

} // namespace

int main() {
    try {
        run();
    } catch (const std::exception& exception) {
        fmt::print(stderr, "{}\n", exception.what());
        return EXIT_FAILURE;
    }
    return EXIT_SUCCESS;
}
