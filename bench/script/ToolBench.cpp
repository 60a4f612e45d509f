// A step that runs /bin/true, replayed, against posix_spawn and wait in a bare loop, and the same
// once this process holds a lot of memory: the started program must not pay for it. They take turns
// in small groups, so that both see the same machine.

#include "platform/foundation/values/Value.h"
#include "script/QVCatalogScript.h"
#include "support/Contest.h"

#include <fmt/core.h>

#include <array>
#include <chrono>
#include <cstdlib>
#include <spawn.h>
#include <stdexcept>
#include <sys/wait.h>
#include <vector>

namespace {

using qv::Value;

constexpr int kRounds = 101;
constexpr int kStepsInRound = 10;
constexpr std::size_t kMuchMemory = std::size_t{1} << 30U;

Value tools() {
    std::vector<Value> steps(static_cast<std::size_t>(kStepsInRound),
                             Value::dictionary({{"operation", Value::integer(8)},
                                                {"arg1", Value::string("/bin/true")},
                                                {"arg2", Value::array({})},
                                                {"arg3", Value::array({})}}));
    return Value::array(std::move(steps));
}

void replay(const Value& steps) {
    qv::QVCatalogScript script;
    script.setIsPriviledged(true);
    if (!script.executeRecording(steps, nullptr, nullptr)) {
        throw std::runtime_error("a tool failed");
    }
}

void bareLoop() {
    std::array<char, 10> word = {"/bin/true"};
    std::array<char*, 2> words = {word.data(), nullptr};
    char* none = nullptr;
    for (int i = 0; i < kStepsInRound; ++i) {
        pid_t pid = 0;
        int status = 0;
        if (::posix_spawn(&pid, word.data(), nullptr, nullptr, words.data(), &none) != 0 ||
            ::waitpid(pid, &status, 0) != pid || status != 0) {
            throw std::runtime_error("a bare spawn failed");
        }
    }
}

template <typename Work> double timeOf(const Work& work) {
    const auto begin = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

} // namespace

int main() {
    const Value steps = tools();
    std::vector<double> ours;
    std::vector<double> bare;
    for (int round = 0; round < kRounds; ++round) {
        bare.push_back(timeOf(bareLoop));
        ours.push_back(timeOf([&] { replay(steps); }));
    }
    fmt::print("{} tool steps of /bin/true, against posix_spawn and wait:\n", kStepsInRound);
    qv::bench::report("wall time", ours, bare, 1.1);

    std::vector<char> memory(kMuchMemory, 'x');
    std::vector<double> heavy;
    for (int round = 0; round < kRounds; ++round) {
        heavy.push_back(timeOf([&] { replay(steps); }));
    }
    fmt::print("the same with 1 GiB in use{}, against without:\n", memory.back() == 'x' ? "" : "?");
    qv::bench::report("wall time", heavy, ours, 1.1);
}
