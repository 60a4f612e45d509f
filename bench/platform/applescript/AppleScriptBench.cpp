// Loops of a million rounds, as scripts write them, at the top of a script and in a handler; and
// the same loops in CPython, in turns. Each run is a process that tells how long the loop alone
// took. Then shell commands, and the same commands by popen.

#include "platform/applescript/language/Compiler.h"
#include "platform/applescript/running/Interpreter.h"
#include "platform/applescript/world/LinuxWorld.h"
#include "platform/foundation/os/Deadline.h"
#include "platform/foundation/os/ProcessIdentity.h"
#include "support/Contest.h"

#include <array>
#include <cstdio>
#include <memory>

namespace {

using namespace qv::applescript;

constexpr int kTurns = 15;
constexpr double kGoal = 1;

struct LoopPair {
    std::string_view name;
    std::string_view ours;
    std::string_view peer;
};
constexpr auto kLoops = std::to_array<LoopPair>({
    {"N times", "set x to 0\nrepeat 1000000 times\nset x to x + 1\nend repeat\n",
     "x = 0\nfor _ in range(1000000):\n    x = x + 1\n"},
    {"counting", "set x to 0\nrepeat with i from 1 to 1000000\nset x to x + i\nend repeat\n",
     "x = 0\nfor i in range(1, 1000001):\n    x = x + i\n"},
    {"while", "set i to 0\nrepeat while i < 1000000\nset i to i + 1\nend repeat\n",
     "i = 0\nwhile i < 1000000:\n    i = i + 1\n"},
});

double ours(const std::string& source) {
    const std::unique_ptr<Tree> tree = compile(source);
    LinuxWorld world(qv::ProcessIdentity::ofThisProcess(), {},
                     qv::Deadline::after(std::chrono::hours(1)));
    const auto begin = std::chrono::steady_clock::now();
    execute(*tree, world);
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

double peer(const std::string& source) {
    const std::string command = "python3 -c '" + source + "'";
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> output(::popen(command.c_str(), "r"),
                                                                 ::pclose);
    double seconds = 0;
    if (!output || std::fscanf(output.get(), "%lf", &seconds) != 1) { // NOLINT(cert-err34-c)
        throw std::runtime_error("python3 does not run");
    }
    return seconds;
}

std::string indented(std::string_view lines) {
    std::string result = "    ";
    for (const char c : lines) {
        result += c;
        result += c == '\n' ? "    " : "";
    }
    return result + "\n";
}

void contest(const LoopPair& loop, bool inFunction) {
    const std::string script =
        inFunction ? fmt::format("on f()\n{}end f\nf()\n", loop.ours) : std::string(loop.ours);
    const std::string body =
        inFunction ? "def f():\n" + indented(loop.peer) + "f()\n" : std::string(loop.peer);
    const std::string timed = fmt::format(
        "import time\nt = time.perf_counter()\n{}print(time.perf_counter() - t)\n", body);
    std::vector<double> mine;
    std::vector<double> theirs;
    for (int turn = 0; turn < kTurns; ++turn) {
        mine.push_back(ours(script));
        theirs.push_back(peer(timed));
    }
    qv::bench::report(fmt::format("{}{}", loop.name, inFunction ? ", called" : ""), mine, theirs,
                      kGoal);
}

void shellContest() {
    constexpr int kCommands = 20; // commands in a turn
    constexpr double kShellGoal = 1.2;
    const std::string script =
        fmt::format("repeat {} times\ndo shell script \"/bin/true\"\nend repeat\n", kCommands);
    std::vector<double> mine;
    std::vector<double> theirs;
    for (int turn = 0; turn < kTurns; ++turn) {
        mine.push_back(ours(script));
        const auto begin = std::chrono::steady_clock::now();
        for (int command = 0; command < kCommands; ++command) {
            const std::unique_ptr<std::FILE, int (*)(std::FILE*)> output(
                ::popen("/bin/true", "r"), ::pclose); // NOLINT(cert-env33-c): it is the peer
            std::array<char, 64> bytes{};
            while (std::fread(bytes.data(), 1, bytes.size(), output.get()) != 0) {
            }
        }
        theirs.push_back(
            std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count());
    }
    qv::bench::report("do shell script", mine, theirs, kShellGoal);
}

} // namespace

int main() {
    fmt::print("AppleScript: loops of 1,000,000 rounds; peer: python3\n");
    for (const LoopPair& loop : kLoops) {
        contest(loop, false);
        contest(loop, true);
    }
    fmt::print("AppleScript: 20 shell commands; peer: popen\n");
    shellContest();
}
