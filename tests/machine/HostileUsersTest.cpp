// Users who want nobody else to be served: strangers, and one with a genuine client.

#include <fmt/core.h>

#include "machine/Machine.h"
#include <algorithm>
#include <chrono>
#include <csignal>

namespace qv::test {
namespace {

using testing::StartsWith;

using Intruders = std::vector<std::unique_ptr<LedProgram>>;

class HostileUsers : public testing::Test {
protected:
    /// Sessions with and without the intruders, in turn, so that other load counts for both alike.
    void expectUnhindered(std::string_view what, const Intruders& intruders) const {
        constexpr int kSessions = 15;
        const auto signal = [&](int number) {
            for (const auto& intruder : intruders) {
                ::kill(intruder->pid(), number);
            }
        };
        std::vector<double> beside;
        std::vector<double> alone;
        for (int i = 0; i < kSessions; ++i) {
            signal(SIGCONT);
            beside.push_back(timeOfSession(empty_));
            signal(SIGSTOP);
            alone.push_back(timeOfSession(empty_));
        }
        const double ratio = medianOf(beside) / medianOf(alone);
        printFigure(fmt::format("{}: a session's time to that of an idle service", what), ratio,
                    "");
        EXPECT_LE(ratio, 2.0);
    }
    std::string empty_ = scriptFile("");
};

TEST_F(HostileUsers, CannotHoldTheServiceInExecve) {
    const std::string folder = "/home/attacker/mount";
    ASSERT_EQ(shell("mkdir " + folder, kAttacker).status, 0);
    Intruders hanging;
    while (hanging.size() < 2) {
        hanging.push_back(intruder({"hang", QV_SOCKET, folder}));
    }
    expectUnhindered("two processes that hang in execve", hanging);
}

TEST_F(HostileUsers, CannotBeLaboriousToJudge) {
    Intruders crowd;
    // The programs are signed by the very key of the genuine client, but not installed: they take
    // longest to judge.
    while (crowd.size() < 2) {
        crowd.push_back(intruder({"crowd", QV_SOCKET}));
    }
    expectUnhindered("two strangers with 64,000 mappings", crowd);
}

// One user sends as much as the service takes; another waits for one script of his at most.
TEST_F(HostileUsers, TakeTurnsWithOthers) {
    constexpr int kConnections = 7;
    const std::string slow = scriptFile(shellStep("sleep 0.2"));
    const double alone = timeOfSession(slow);
    std::vector<std::unique_ptr<StartedProgram>> loops;
    while (std::ssize(loops) < kConnections) {
        loops.push_back(std::make_unique<StartedProgram>(ProgramStart{
            .command = {"/bin/bash", "-c",
                        fmt::format("while :; do echo run {}; done | {}", slow, kClient)},
            .user = kAttacker}));
    }
    std::vector<double> times(5);
    std::ranges::generate(times, [&] { return timeOfSession(slow); });
    const double beside = medianOf(times);
    printFigure("a script beside 7 connections of another user's: time to that alone",
                beside / alone, "");
    EXPECT_LE(beside / alone, 4.0);
}

// A socket of the user's that takes connections and says nothing, where his service manager
// listens.
TEST_F(HostileUsers, AreNotWaitedForTwice) {
    const std::string folder = fmt::format("/run/user/{}", kAttacker);
    ASSERT_EQ(shell(fmt::format("install -d -m 0700 -o attacker -g attacker /run/user {0} && "
                                "chown root:root /run/user && chmod 0755 /run/user",
                                folder))
                  .status,
              0);
    const StartedProgram silent(
        ProgramStart{.command = {"/usr/bin/python3", "-c",
                                 "import os, socket, sys, time\n"
                                 "os.makedirs(sys.argv[1] + '/systemd')\n"
                                 "s = socket.socket(socket.AF_UNIX)\n"
                                 "s.bind(sys.argv[1] + '/systemd/private')\n"
                                 "s.listen(64)\n"
                                 "time.sleep(600)\n",
                                 folder},
                     .user = kAttacker});
    awaitFile(folder + "/systemd/private");
    const std::string launch = "{ operation = 20; arg1 = 1; },"
                               "{ operation = 1; URL = \"file:///bin/true\"; },";
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_THAT(session(scriptFile(launch + launch + launch), kAttacker), StartsWith("ok "));
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - begin;
    printFigure("three launches through a silent manager", taken.count(), "s");
    EXPECT_LE(taken.count(), 15.0);
}

// A wait that never ends keeps the queue: the documents say so, and how an administrator ends it.
TEST_F(HostileUsers, WaitIsEndedByAnAdministrator) {
    const auto waiting = clientOf(kAttacker);
    const StartedProgram sleeper(ProgramStart{.command = {"/bin/sleep", "600"}, .user = kAttacker});
    waiting->begin("run " +
                   scriptFile(shellStep("touch /run/waits") +
                              fmt::format("{{ operation = 0; arg1 = {}; }}", sleeper.pid())));
    awaitFile("/run/waits");
    const auto other = clientOf(kVictim);
    other->begin("run " + empty_);
    EXPECT_FALSE(other->answerWithin(std::chrono::milliseconds(300)));
    EXPECT_EQ(shell("systemctl stop " + kUnit).status, 0);
    EXPECT_THAT(waiting->answer(), StartsWith("error 3 "));
    EXPECT_THAT(other->answer(), StartsWith("ok "));
}

} // namespace
} // namespace qv::test
