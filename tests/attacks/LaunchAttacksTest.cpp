// How a client is started: by somebody who wants to speak through it.

#include "support/InstalledPrograms.h"

#include <fmt/core.h>
#include <gmock/gmock.h>

#include "attacks/AttackTest.h"
#include <csignal>

namespace qv::test {
namespace {

class LaunchAttacks : public AttackTest {};

std::vector<std::string> environmentOf(const Stage& stage) {
    return {"ATTACK_SOCKET=" + stage.socketPath(), "ATTACK_SCRIPT=" + stage.script()};
}

std::unique_ptr<LedProgram> startWithLibrary(Stage& stage, std::string_view variable,
                                             const std::filesystem::path& program) {
    std::vector<std::string> environment = environmentOf(stage);
    environment.push_back(fmt::format(
        "{}={}", variable, stage.attackersCopy(stage.programs() / "library.so").native()));
    return stage.start({program, stage.socketPath()}, environment);
}

bool loadsALibrary(Stage& stage, std::string_view variable) {
    const auto client = startWithLibrary(stage, variable, stage.programs().unmarked());
    EXPECT_EQ(client->answer(), "loaded");
    static_cast<void>(client->answer());
    return stage.wasDone();
}

// A copy is as dumpable as any program, and what is loaded into it belongs to its user.
TEST_F(LaunchAttacks, ALibraryPreloadedIntoAnUnmarkedClient) {
    expectStoppedBy({"launchMark", "mappings", "dumpable"},
                    [](Stage& stage) { return loadsALibrary(stage, "LD_PRELOAD"); });
}

TEST_F(LaunchAttacks, AnAuditLibraryInAnUnmarkedClient) {
    expectStoppedBy({"launchMark", "mappings", "dumpable"},
                    [](Stage& stage) { return loadsALibrary(stage, "LD_AUDIT"); });
}

// The loader ignores these variables for programs that are started by the rules for privileged
// ones: no check of ours is needed.
TEST_F(LaunchAttacks, ALibraryPreloadedIntoAGenuineClient) {
    for (const std::string_view variable : {"LD_PRELOAD", "LD_AUDIT"}) {
        expectFailsWithout({"launchMark", "mappings", "dumpable"}, [&](Stage& stage) {
            const auto client = startWithLibrary(stage, variable, stage.programs().genuine());
            EXPECT_EQ(client->answer(), "started"); // and no library first
            EXPECT_EQ(client->order("connect").substr(0, 9), "connected");
            EXPECT_EQ(client->order("greet"), "greeted");
            EXPECT_EQ(client->order("send"), "served") << "its own script, and no other";
            return stage.wasDone();
        });
    }
}

// A program that had inherited the group would start the client without the rules for privileged
// programs, because it would gain nothing by that, and yet with the mark.
bool startsTheClientAgain(Stage& stage, bool dutiful) {
    std::vector<std::string> environment = environmentOf(stage);
    environment.push_back("ATTACK_CLIENT=" + stage.programs().genuine().native());
    environment.push_back("ATTACK_LIBRARY=" +
                          stage.attackersCopy(stage.programs() / "library.so").native());
    const auto client = stage.client(stage.programs().genuine(), environment);
    for (int i = 0; dutiful && i < 2; ++i) { // it keeps the group and connects again
        EXPECT_EQ(client->order("duties"), "done");
        EXPECT_EQ(client->order("connect").substr(0, 9), "connected");
        EXPECT_EQ(client->order("greet"), "greeted");
    }
    const auto program = stage.programs() / "regain";
    EXPECT_EQ(client->order("execute " + program.native()), dutiful ? "no group" : "regained");
    EXPECT_EQ(client->answer(), dutiful ? "started" : "loaded");
    if (!dutiful) {
        static_cast<void>(client->answer());
    }
    return stage.wasDone();
}

TEST_F(LaunchAttacks, AProgramExecutedByAClientThatKeepsItsGroup) {
    expectStoppedBy({"mappings", "dumpable"},
                    [](Stage& stage) { return startsTheClientAgain(stage, false); });
    expectFailsWithout({"launchMark", "mappings", "dumpable"},
                       [](Stage& stage) { return startsTheClientAgain(stage, true); });
}

// The kernel does not give the group to a program that is traced when it is executed.
TEST_F(LaunchAttacks, ATracerFromTheFirstInstructionOn) {
    expectStoppedBy({"launchMark", "dumpable", "tracer"}, [](Stage& stage) {
        const auto client = stage.start(
            {"trace_at_exec", stage.programs().genuine(), stage.socketPath(), stage.script()});
        EXPECT_EQ(client->answer(), "rewritten");
        EXPECT_EQ(client->answer(), "started");
        EXPECT_TRUE(client->order("connect").starts_with("connected"));
        static_cast<void>(client->order("greet"));
        static_cast<void>(client->order("send"));
        return stage.wasDone();
    });
}

// Nor to one that may have no new privileges, without which nobody may filter its system calls.
bool supervises(Stage& stage, const std::filesystem::path& program) {
    const auto client = stage.start({"supervisor", program, stage.socketPath(), stage.script()});
    EXPECT_EQ(client->answer(), "started");
    client->begin("connect");
    EXPECT_EQ(client->answer(), "rewritten");
    EXPECT_TRUE(client->answer().starts_with("connected"));
    static_cast<void>(client->order("greet"));
    static_cast<void>(client->order("send"));
    return stage.wasDone();
}

TEST_F(LaunchAttacks, ASupervisorOfTheSystemCalls) {
    expectStoppedBy({"launchMark", "dumpable"},
                    [](Stage& stage) { return supervises(stage, stage.programs().genuine()); });
}

TEST_F(LaunchAttacks, ASupervisorOfAClientWithTheHardenedRuntimeAlone) {
    expectStoppedBy({"launchMark", "dumpable", "seccompFilter"},
                    [](Stage& stage) { return supervises(stage, stage.programs().hardened()); });
}

// The attacker changes what a client of his is about to send.
bool rewrites(Stage& stage, std::vector<std::string> command) {
    const auto neighbour = stage.start(std::move(command));
    EXPECT_EQ(neighbour->answer(), "started");
    EXPECT_EQ(neighbour->order("rewrite " + stage.script()), "rewritten");
    EXPECT_TRUE(neighbour->order("tell connect").starts_with("connected"));
    static_cast<void>(neighbour->order("tell greet"));
    static_cast<void>(neighbour->order("tell send"));
    return stage.wasDone();
}

TEST_F(LaunchAttacks, ACopyOfTheClientInAHomeDirectory) {
    expectStoppedBy({"launchMark", "mappings", "dumpable"}, [](Stage& stage) {
        const auto copy = stage.attackersCopy(stage.programs().genuine());
        return rewrites(stage, {"neighbour", copy, stage.socketPath()});
    });
}

// A bit that the attacker may set on his copy: it gives his own group.
TEST_F(LaunchAttacks, ACopyThatIsSetGroupIDToAnotherGroup) {
    expectStoppedBy({"launchMark", "mappings", "dumpable"}, [](Stage& stage) {
        const auto copy = stage.attackersCopy(stage.programs().genuine());
        install(copy, kAttacker, kAttacker, 02755);
        return rewrites(stage, {"neighbour", copy, stage.socketPath()});
    });
}

// No name, no link, no file system that anybody knows, and an owner who is not root.
TEST_F(LaunchAttacks, TheClientsBytesInMemory) {
    expectStoppedBy(
        {"launchMark", "mappings", "dumpable", "fileSystem", "linkCount"}, [](Stage& stage) {
            return rewrites(stage,
                            {"neighbour", "copy", stage.programs().genuine(), stage.socketPath()});
        });
}

// Without a copy the kernel refuses: see AConnectionStolenFromAGenuineClient.

// A genuine client with a hole: it loads what its user names.
TEST_F(LaunchAttacks, ALibraryThatOthersCanWriteInAGenuineClient) {
    for (const auto& [owner, mode] : {std::pair<uid_t, mode_t>{kAttacker, 0755}, {0, 0777}}) {
        expectStoppedBy({"mappings"}, [&](Stage& stage) {
            const auto library = stage.attackersCopy(stage.programs() / "library.so");
            install(library, owner, 0, mode);
            const auto client = stage.client(stage.programs().genuine(), environmentOf(stage));
            EXPECT_EQ(client->order("load " + library.native()), "loaded");
            static_cast<void>(client->answer());
            return stage.wasDone();
        });
    }
}

} // namespace
} // namespace qv::test
