// Tests much ordinary use: the service starts for each session and ends with it.

#include <fmt/core.h>

#include "machine/Machine.h"
#include <chrono>
#include <thread>

namespace qv::test {
namespace {

using testing::StartsWith;

// Runs so many loops of sessions side by side; each client idles so long before its first message.
int failedSessions(int loops, int sessions, const std::string& idle) {
    const std::string script = scriptFile("");
    const std::string loop = fmt::format(
        "for ((i = 0; i < {}; ++i)); do"
        "  a=$({{ {} echo run {}; }} | {}); [[ ${{a##*$'\\n'}} == ok* ]] || echo \"$a\";"
        " done",
        sessions, idle, script, kClient);
    std::string all;
    for (int i = 0; i < loops; ++i) {
        all += "(" + loop + ") & ";
    }
    const ProgramRun run = shell(all + "wait", kVictim);
    const auto failures = std::ranges::count(run.output, '\n');
    EXPECT_EQ(failures, 0) << run.output;
    EXPECT_EQ(unitProperty("Result"), "success");
    return static_cast<int>(failures);
}

TEST(Sessions, AllAnsweredInLongLoop) {
    constexpr int kCount = 500;
    const auto begin = std::chrono::steady_clock::now();
    const int failed = failedSessions(1, kCount, "");
    const std::chrono::duration<double, std::milli> taken =
        std::chrono::steady_clock::now() - begin;
    printFigure("500 sessions in a row: failed", failed, "");
    printFigure("500 sessions in a row: one takes", taken.count() / kCount, "ms");
}

TEST(Sessions, AllAnsweredInParallelLoops) {
    printFigure("8 loops of 60 sessions: failed", failedSessions(8, 60, ""), "of 480");
}

// Each client is connected for a while before it sends, and the service leaves meanwhile.
TEST(Sessions, IdleClientsOutliveOthersExit) {
    printFigure("4 loops of 60 sessions that idle first: failed",
                failedSessions(4, 60, "echo connect; sleep 0.0$((RANDOM % 5));"), "of 240");
}

TEST(Sessions, LongLivedClientReconnects) {
    const std::string script = scriptFile("");
    const auto client = clientOf(kVictim);
    EXPECT_EQ(client->order("keep"), "kept");
    EXPECT_EQ(client->order("connect"), "connected");
    for (int i = 0; i < 2; ++i) {
        EXPECT_THAT(client->order("run " + script), StartsWith("ok "));
        EXPECT_EQ(shell("systemctl stop " + kUnit).status, 0);
    }
    // Its children have nothing of the group by which it is known.
    EXPECT_EQ(client->order("child"), "1001 1001 1001");
    EXPECT_THAT(client->order("run " + script), StartsWith("ok "));
}

} // namespace
} // namespace qv::test
