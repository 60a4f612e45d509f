// Functions of rules.
// 1. A fresh checker with its default functions that is asked nothing. Goal: at most 1 us.
// 2. "version.os" again. Goal: at most 1 us.
// 3. The SHA-1 digest of a file of 256 MiB, as a rule asks for it, against sha1sum(1).
//    Goal: at most 1.05 of its time.

#include "rules/QVRuleChecker.h"
#include "support/Contest.h"
#include "support/TemporaryDirectory.h"

#include <cstdlib>
#include <fcntl.h>

namespace {

using qv::QVRuleChecker;
using qv::bench::Costs;
using qv::bench::measure;

constexpr int kRounds = 15;
constexpr std::size_t kFileSize = std::size_t{256} << 20U;

template <typename Work> double medianMicroseconds(int repeats, const Work& work) {
    std::vector<double> rounds;
    for (int round = 0; round < kRounds; ++round) {
        const auto begin = std::chrono::steady_clock::now();
        for (int i = 0; i < repeats; ++i) {
            work();
        }
        const std::chrono::duration<double, std::micro> all =
            std::chrono::steady_clock::now() - begin;
        rounds.push_back(all.count() / repeats);
    }
    return qv::bench::median(rounds);
}

void print(std::string_view what, double microseconds) {
    fmt::print("  {:<40} {:8.2f} us   {:.2f} of 1 us   goal {}\n", what, microseconds, microseconds,
               microseconds <= 1 ? "met" : "missed");
}

void measureSmallThings() {
    constexpr int kRepeats = 100'000;
    print("a fresh checker with six functions", medianMicroseconds(kRepeats, [] {
              if (QVRuleChecker::ruleCheckerWithDefaultFunctions(true)->functions().size() != 6) {
                  throw std::runtime_error("not six functions");
              }
          }));
    const auto checker = QVRuleChecker::ruleCheckerWithDefaultFunctions(true);
    print("version.os again", medianMicroseconds(kRepeats, [&] {
              if (!checker->computeFunction("version.os")) {
                  throw std::runtime_error("no version");
              }
          }));
}

void measureDigest() {
    const qv::test::TemporaryDirectory folder;
    const std::string path = folder.write("file", std::string(kFileSize, 'x'));
    const std::string call = fmt::format("${{filesystem(do=sha1sum;absPath={})}}", path);
    Costs ours;
    Costs peer;
    for (int round = 0; round < kRounds; ++round) {
        ours.add(measure([&] {
            const auto checker = QVRuleChecker::ruleCheckerWithDefaultFunctions(true);
            return checker->computeFunction(call) ? 0 : 1;
        }));
        peer.add(measure([&] {
            const int nowhere = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
            return nowhere < 0 || ::dup2(nowhere, STDOUT_FILENO) < 0
                       ? 1
                       : qv::bench::runProgram({"/usr/bin/sha1sum", path});
        }));
    }
    fmt::print("SHA-1 of a file of 256 MiB, sha1sum\n");
    qv::bench::report(ours, peer, 1.05);
}

} // namespace

int main() {
    try {
        measureSmallThings();
        measureDigest();
    } catch (const std::exception& exception) {
        fmt::print(stderr, "bench_rule_functions: {}\n", exception.what());
        return EXIT_FAILURE;
    }
    return EXIT_SUCCESS;
}
