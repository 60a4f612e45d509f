// Attacks at the start of a client: by somebody who wants to speak through it.

#include "support/InstalledPrograms.h"

#include <fmt/core.h>

#include "attacks/AttackTest.h"

namespace qv::test {
namespace {

class LaunchAttacks : public AttackTest {};

std::unique_ptr<LedProgram> startWithLibrary(Stage& stage, std::string_view variable,
                                             const std::filesystem::path& program) {
    const auto library = stage.attackersCopy(stage.programs() / "library.so");
    return stage.start({program}, {fmt::format("{}={}", variable, library.native())});
}

// The library in a client has said that it is loaded, and says whether it was served.
bool isDoneByLibrary(Stage& stage, LedProgram& client) {
    static_cast<void>(client.answer());
    return stage.isDoneBy(client, {});
}

// A copy is as dumpable as any program, and the libraries loaded into it belong to its user.
TEST_F(LaunchAttacks, ALibraryPreloadedIntoAnUnmarkedClient) {
    for (const std::string_view variable : {"LD_PRELOAD", "LD_AUDIT"}) {
        expectStoppedBy({"launchMark", "mappings", "dumpable"}, [&](Stage& stage) {
            const auto client = startWithLibrary(stage, variable, stage.programs().unmarked());
            EXPECT_EQ(client->answer(), "loaded");
            return isDoneByLibrary(stage, *client);
        });
    }
}

// The loader ignores these variables for programs that are started by the rules for privileged
// ones: no check of ours is needed.
TEST_F(LaunchAttacks, ALibraryPreloadedIntoAGenuineClient) {
    for (const std::string_view variable : {"LD_PRELOAD", "LD_AUDIT"}) {
        expectFailsWithout({"launchMark", "mappings", "dumpable"}, [&](Stage& stage) {
            const auto client = startWithLibrary(stage, variable, stage.programs().genuine());
            EXPECT_EQ(client->answer(), "started"); // no library came first
            lead(*client, {{"connect", "connected"},
                           {"greet", "greeted"},
                           {"send", "served"}}); // its own script, and no other
            return stage.isDoneBy(*client, {});
        });
    }
}

// A program that had inherited the group would start the client without the rules for privileged
// programs, because it would gain nothing by that, and yet with the mark.
bool startsTheClientAgain(Stage& stage, bool dutiful) {
    const auto library = stage.attackersCopy(stage.programs() / "library.so");
    const auto client = stage.client(stage.programs().genuine());
    for (int i = 0; dutiful && i < 2; ++i) { // it keeps the group and connects again
        lead(*client, {{"duties", "done"}, {"connect", "connected"}, {"greet", "greeted"}});
    }
    lead(*client,
         {{"execute " + stage.programs().intruder().native(), "started"},
          {fmt::format("regain {}", kClientGroup), dutiful ? "refused" : "regained"},
          {"set LD_PRELOAD=" + library.native(), "set"},
          {"execute " + stage.programs().genuine().native(), dutiful ? "started" : "loaded"}});
    return dutiful ? stage.isDoneBy(*client, {}) : isDoneByLibrary(stage, *client);
}

TEST_F(LaunchAttacks, AProgramExecutedByAClientThatKeepsItsGroup) {
    expectStoppedBy({"mappings", "dumpable"},
                    [](Stage& stage) { return startsTheClientAgain(stage, false); });
    expectFailsWithout({"launchMark", "mappings", "dumpable"},
                       [](Stage& stage) { return startsTheClientAgain(stage, true); });
}

// The attacker changes what a client of his, started in one of these ways, is about to send.
bool rewrites(Stage& stage, std::string_view how, const std::filesystem::path& program) {
    const auto parent = stage.parent(how, program);
    lead(*parent, {{"rewrite", "rewritten"}, {"tell connect", "connected"}});
    return stage.isDoneBy(*parent, {"tell greet", "tell send"});
}

// The kernel does not give the group to a program that is traced when it is executed.
TEST_F(LaunchAttacks, ATracerFromTheFirstInstructionOn) {
    expectStoppedBy({"launchMark", "dumpable", "tracer"}, [](Stage& stage) {
        return rewrites(stage, "trace", stage.programs().genuine());
    });
}

// The kernel gives no mark either to a process that may have no new privileges, and an unprivileged
// filter of system calls needs such a process.
TEST_F(LaunchAttacks, ASupervisorOfTheSystemCalls) {
    expectStoppedBy({"launchMark", "dumpable"}, [](Stage& stage) {
        return rewrites(stage, "supervise", stage.programs().genuine());
    });
}

TEST_F(LaunchAttacks, ASupervisorOfAClientWithTheHardenedRuntimeAlone) {
    expectStoppedBy({"launchMark", "dumpable", "seccompFilter"}, [](Stage& stage) {
        return rewrites(stage, "supervise", stage.programs().hardened());
    });
}

// The set-group-id bit, which the attacker may set on his copy, gives his own group.
TEST_F(LaunchAttacks, ACopyOfTheClientInAHomeDirectory) {
    for (const mode_t mode : {0755U, 02755U}) {
        expectStoppedBy({"launchMark", "mappings", "dumpable"}, [&](Stage& stage) {
            const auto copy = stage.attackersCopy(stage.programs().genuine());
            install(copy, kAttacker, kAttacker, mode);
            return rewrites(stage, "start", copy);
        });
    }
}

// The file has no name, no link, no file system that anybody knows, and an owner who is not root.
TEST_F(LaunchAttacks, TheClientsBytesInMemory) {
    expectStoppedBy(
        {"launchMark", "mappings", "dumpable", "fileSystem", "linkCount"},
        [](Stage& stage) { return rewrites(stage, "copy", stage.programs().genuine()); });
}

// The kernel refuses this if there is no copy: see AConnectionStolenFromAGenuineClient.

// A genuine client with a hole: it loads what its user names.
TEST_F(LaunchAttacks, ALibraryThatOthersCanWriteInAGenuineClient) {
    for (const auto& [owner, mode] : {std::pair<uid_t, mode_t>{kAttacker, 0755}, {0, 0777}}) {
        expectStoppedBy({"mappings"}, [&](Stage& stage) {
            const auto library = stage.attackersCopy(stage.programs() / "library.so");
            install(library, owner, 0, mode);
            const auto client = stage.client(stage.programs().genuine());
            lead(*client, {{"load " + library.native(), "loaded"}});
            return isDoneByLibrary(stage, *client);
        });
    }
}

} // namespace
} // namespace qv::test
