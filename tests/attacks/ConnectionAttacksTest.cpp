// Who speaks on a connection: processes that are not the one that connected, or not any more.

#include <fmt/core.h>

#include "attacks/AttackTest.h"
#include <array>
#include <sys/socket.h>

namespace qv::test {
namespace {

class ConnectionAttacks : public AttackTest {};

// A process number, forced; an attacker starts programs until it comes round.
std::unique_ptr<LedProgram> startWithPid(const Stage& stage, std::string_view pid,
                                         const std::filesystem::path& program) {
    auto started = std::make_unique<LedProgram>(
        ProgramStart{.command = {stage.programs() / "with_pid", std::string(pid),
                                 std::to_string(kAttacker), program, stage.socketPath()},
                     .user = 0});
    EXPECT_EQ(started->answer(), "started");
    return started;
}

// Before it did, a process number stood for the peer, and only the other checks remained.
bool kernelKnowsPeers() {
    constexpr int kPeerPidfd = 77; // SO_PEERPIDFD
    std::array<int, 2> ends{};
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0) {
        return false;
    }
    const Descriptor first(ends[0]);
    const Descriptor second(ends[1]);
    int pidfd = -1;
    socklen_t size = sizeof pidfd;
    const bool known = ::getsockopt(first.get(), SOL_SOCKET, kPeerPidfd, &pidfd, &size) == 0;
    const Descriptor peer(pidfd);
    return known;
}

// The intruder connects, queues a request and ends; the genuine client gets its number.
TEST_F(ConnectionAttacks, ReuseOfTheProcessNumberBeforeTheLookUp) {
    Checks checks{"launchMark", "nonce"};
    if (kernelKnowsPeers()) {
        checks.push_back("peerProcess");
    }
    expectStoppedBy(checks, [](Stage& stage) {
        stage.hold();
        const auto intruder = stage.start({"pid_reuse", stage.socketPath(), stage.script()});
        const std::string queued = intruder->answer();
        EXPECT_TRUE(queued.starts_with("queued ")) << queued;
        EXPECT_EQ(intruder->order("end"), "gone");
        const auto genuine =
            startWithPid(stage, queued.substr(queued.find(' ') + 1), stage.programs().genuine());
        stage.letGo();
        static_cast<void>(intruder->answer());
        return stage.wasDone();
    });
}

// The genuine client ends after it was accepted; an intruder gets its number and has its socket.
TEST_F(ConnectionAttacks, ReuseOfTheProcessNumberAfterAcceptance) {
    expectStoppedBy({"peerAlive", "image", "executable"}, [](Stage& stage) {
        const std::string first = stage.home() / "first";
        const std::string second = stage.home() / "second";
        const auto accomplice = stage.client(stage.programs() / "client");
        accomplice->begin("receive " + first);
        EXPECT_EQ(accomplice->answer(), "bound");
        auto genuine = stage.client(stage.programs().genuine());
        EXPECT_TRUE(genuine->order("connect").starts_with("connected"));
        EXPECT_EQ(genuine->order("await"), "greeted");
        EXPECT_EQ(genuine->order("pass " + first), "passed");
        EXPECT_EQ(accomplice->answer(), "received");
        const std::string pid = std::to_string(genuine->pid());
        genuine.reset();
        const auto intruder = startWithPid(stage, pid, stage.programs() / "client");
        intruder->begin("receive " + second);
        EXPECT_EQ(intruder->answer(), "bound");
        EXPECT_EQ(accomplice->order("pass " + second), "passed");
        EXPECT_EQ(intruder->answer(), "received");
        EXPECT_EQ(intruder->order("greet"), "greeted");
        EXPECT_EQ(intruder->order("script " + stage.script()), "noted");
        static_cast<void>(intruder->order("send"));
        return stage.wasDone();
    });
}

bool becomesTheClient(Stage& stage, std::string_view how) {
    stage.hold();
    const auto intruder =
        stage.start({"queue_and_exec", std::string(how), stage.programs().genuine(),
                     stage.socketPath(), stage.script()});
    EXPECT_EQ(intruder->answer(), "started");
    stage.letGo();
    static_cast<void>(intruder->answer());
    return stage.wasDone();
}

TEST_F(ConnectionAttacks, ARequestQueuedBeforeTheClientIsExecuted) {
    expectStoppedBy({"launchMark", "nonce"},
                    [](Stage& stage) { return becomesTheClient(stage, "queued"); });
}

TEST_F(ConnectionAttacks, ASiblingThatSendsAfterTheClientIsExecuted) {
    expectStoppedBy({"launchMark", "sender"},
                    [](Stage& stage) { return becomesTheClient(stage, "sibling"); });
}

TEST_F(ConnectionAttacks, AnAcceptedClientThatExecutesSomethingElse) {
    expectStoppedBy({"image", "executable"}, [](Stage& stage) {
        const auto client = stage.client(stage.programs().genuine());
        EXPECT_TRUE(client->order("connect").starts_with("connected"));
        EXPECT_EQ(client->order("await"), "greeted");
        EXPECT_EQ(client->order("execute " + (stage.programs() / "client").native()), "started");
        EXPECT_EQ(client->order("greet"), "greeted");
        EXPECT_EQ(client->order("script " + stage.script()), "noted");
        static_cast<void>(client->order("send"));
        return stage.wasDone();
    });
}

TEST_F(ConnectionAttacks, AForkedChildOfAnAcceptedClient) {
    expectStoppedBy({"sender"}, [](Stage& stage) {
        const auto client = stage.acceptedClient();
        EXPECT_EQ(client->order("script " + stage.script()), "noted");
        static_cast<void>(client->order("forksend"));
        return stage.wasDone();
    });
}

TEST_F(ConnectionAttacks, AConnectionHandedToAnotherProcess) {
    expectStoppedBy({"sender"}, [](Stage& stage) {
        const std::string place = stage.home() / "place";
        const auto intruder = stage.client(stage.programs() / "client");
        intruder->begin("receive " + place);
        EXPECT_EQ(intruder->answer(), "bound");
        const auto client = stage.client(stage.programs().genuine());
        EXPECT_TRUE(client->order("connect").starts_with("connected"));
        EXPECT_EQ(client->order("pass " + place), "passed");
        EXPECT_EQ(intruder->answer(), "received");
        EXPECT_EQ(intruder->order("greet"), "greeted");
        EXPECT_EQ(intruder->order("script " + stage.script()), "noted");
        static_cast<void>(intruder->order("send"));
        return stage.wasDone();
    });
}

// Another process of the user takes the connection out of a running client.
bool stealsTheConnection(Stage& stage, const std::filesystem::path& program) {
    const auto thief = stage.start({"neighbour", program, stage.socketPath()});
    EXPECT_EQ(thief->answer(), "started");
    const std::string connected = thief->order("tell connect");
    EXPECT_TRUE(connected.starts_with("connected ")) << connected;
    static_cast<void>(thief->order("tell await"));
    if (thief->order("steal " + connected.substr(connected.find(' ') + 1)) == "stolen") {
        static_cast<void>(thief->order("send " + stage.script()));
    }
    return stage.wasDone();
}

TEST_F(ConnectionAttacks, AConnectionStolenFromAnUnmarkedClient) {
    expectStoppedBy({"launchMark", "dumpable", "sender"}, [](Stage& stage) {
        return stealsTheConnection(stage, stage.programs().unmarked());
    });
}

// Here it is the kernel that stops everything: nobody but root reaches into a process that was
// started by the rules for privileged programs.
TEST_F(ConnectionAttacks, AConnectionStolenFromAGenuineClient) {
    expectFailsWithout({"launchMark", "dumpable", "sender"}, [](Stage& stage) {
        const auto thief =
            stage.start({"neighbour", stage.programs().genuine(), stage.socketPath()});
        EXPECT_EQ(thief->answer(), "started");
        EXPECT_EQ(thief->order("reach"), "EPERM EPERM EACCES EPERM");
        return stealsTheConnection(stage, stage.programs().genuine());
    });
}

// The kernel refuses to let descriptors through where it can be told to.
bool kernelRefusesDescriptors() {
    constexpr int kPassRights = 83; // SO_PASSRIGHTS
    const Descriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const int off = 0;
    return ::setsockopt(socket.get(), SOL_SOCKET, kPassRights, &off, sizeof off) == 0;
}

TEST_F(ConnectionAttacks, ARequestThatBringsADescriptor) {
    Checks checks{"controlData"};
    if (kernelRefusesDescriptors()) {
        checks.push_back("passedRights");
    }
    expectStoppedBy(checks, [](Stage& stage) {
        const auto client = stage.acceptedClient();
        EXPECT_EQ(client->order("script " + stage.script()), "noted");
        static_cast<void>(client->order("descriptor"));
        return stage.wasDone();
    });
}

} // namespace
} // namespace qv::test
