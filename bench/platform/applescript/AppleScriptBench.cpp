// Loops of a million rounds, as scripts write them, at the top of a script and in a handler; and
// the same loops in CPython, in turns. Each run is a process that tells how long the loop alone
// took.

#include "platform/applescript/language/Compiler.h"
#include "platform/applescript/running/Interpreter.h"
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

/// No loop reaches it.
class NoWorld final : public OutsideWorld {
public:
    ScriptValue perform(const Command& /*command*/) override { return {}; }
    ScriptValue send(const Specifier& /*target*/, const Command& /*command*/) override {
        return {};
    }
    void set(const Specifier& /*object*/, const ScriptValue& /*value*/) override {}
    [[noreturn]] void refuse(const Specifier& /*target*/, std::string_view /*words*/) override {
        throw ScriptError{};
    }
    std::string colonPath(std::string_view path) override { return std::string(path); }
    std::string posixPath(std::string_view path) override { return std::string(path); }
    bool fileExists(const std::string& /*path*/) override { return false; }
    double now() override { return 0; }
};

double ours(const std::string& source) {
    const std::unique_ptr<Tree> tree = compile(source);
    NoWorld world;
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

} // namespace

int main() {
    fmt::print("AppleScript: loops of 1,000,000 rounds; peer: python3\n");
    for (const LoopPair& loop : kLoops) {
        contest(loop, false);
        contest(loop, true);
    }
}
