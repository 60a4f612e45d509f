// Attacks by the speaker on a connection: processes that are not the one that connected, or not any
// more.

#include "attacks/AttackTest.h"
#include <array>
#include <sys/socket.h>

namespace qv::test {
namespace {

class ConnectionAttacks : public AttackTest {};

constexpr int kPeerPidfd = 77;  // SO_PEERPIDFD
constexpr int kPassRights = 83; // SO_PASSRIGHTS

// Whether this kernel has an option of sockets by which the service guards itself.
bool kernelKnows(int option) {
    std::array<int, 2> ends{};
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0) {
        return false;
    }
    const Descriptor first(ends[0]);
    const Descriptor second(ends[1]);
    int value = -1;
    socklen_t size = sizeof value;
    const bool known = ::getsockopt(first.get(), SOL_SOCKET, option, &value, &size) == 0;
    const Descriptor peer(option == kPeerPidfd ? value : -1);
    return known;
}

// The intruder connects, queues a request and ends; the genuine client gets its number. On an older
// kernel a process number stands for the peer, and only the other checks remain.
TEST_F(ConnectionAttacks, ReuseOfTheProcessNumberBeforeTheLookUp) {
    Checks checks{"launchMark", "nonce"};
    if (kernelKnows(kPeerPidfd)) {
        checks.push_back("peerProcess");
    }
    expectStoppedBy(checks, [](Stage& stage) {
        stage.hold();
        const auto accomplice = stage.intruder();
        auto intruder = stage.intruder();
        lead(*intruder, {{"connect", "connected"}, {"script", "noted"}, {"queue", "sent"}});
        stage.pass(*intruder, *accomplice);
        const pid_t pid = intruder->pid();
        intruder.reset();
        const auto genuine = stage.client(stage.programs().genuine(), pid);
        stage.letGo();
        return stage.isDoneBy(*accomplice, {"greet", "reply"});
    });
}

// The genuine client ends after it was accepted; an intruder gets its number and has its socket.
TEST_F(ConnectionAttacks, ReuseOfTheProcessNumberAfterAcceptance) {
    expectStoppedBy({"peerAlive", "image", "executable"}, [](Stage& stage) {
        const auto accomplice = stage.intruder();
        auto genuine = stage.acceptedClient();
        stage.pass(*genuine, *accomplice);
        const pid_t pid = genuine->pid();
        genuine.reset();
        const auto intruder = stage.client(stage.programs().intruder(), pid);
        stage.pass(*accomplice, *intruder);
        return stage.isDoneThrough(*intruder);
    });
}

TEST_F(ConnectionAttacks, ARequestQueuedBeforeTheClientIsExecuted) {
    expectStoppedBy({"launchMark", "nonce"}, [](Stage& stage) {
        stage.hold();
        const auto intruder = stage.intruder();
        lead(*intruder, {{"connect", "connected"},
                         {"script", "noted"},
                         {"queue", "sent"},
                         {"execute " + stage.programs().genuine().native(), "started"}});
        stage.letGo();
        return stage.isDoneBy(*intruder, {"greet", "reply"});
    });
}

TEST_F(ConnectionAttacks, ASiblingThatSendsAfterTheClientIsExecuted) {
    expectStoppedBy({"launchMark", "sender"}, [](Stage& stage) {
        stage.hold();
        const auto intruder = stage.intruder();
        const auto sibling = stage.intruder();
        lead(*intruder, {{"connect", "connected"}});
        stage.pass(*intruder, *sibling);
        lead(*intruder, {{"execute " + stage.programs().genuine().native(), "started"}});
        stage.letGo();
        return stage.isDoneThrough(*sibling);
    });
}

TEST_F(ConnectionAttacks, AnAcceptedClientThatExecutesSomethingElse) {
    expectStoppedBy({"image", "executable"}, [](Stage& stage) {
        const auto client = stage.acceptedClient();
        lead(*client, {{"execute " + stage.programs().intruder().native(), "started"}});
        return stage.isDoneThrough(*client);
    });
}

TEST_F(ConnectionAttacks, AForkedChildOfAnAcceptedClient) {
    expectStoppedBy({"sender"}, [](Stage& stage) {
        const auto client = stage.acceptedClient();
        return stage.isDoneBy(*client, {"greet", "script", "forksend"});
    });
}

TEST_F(ConnectionAttacks, AConnectionHandedToAnotherProcess) {
    expectStoppedBy({"sender"}, [](Stage& stage) {
        const auto intruder = stage.intruder();
        const auto client = stage.acceptedClient();
        stage.pass(*client, *intruder);
        return stage.isDoneThrough(*intruder);
    });
}

// Another process of the user takes the connection out of a running client.
bool stealsTheConnection(Stage& stage, const std::filesystem::path& program) {
    const auto thief = stage.parent("start", program);
    const std::string connected = thief->order("tell connect");
    EXPECT_TRUE(connected.starts_with("connected ")) << connected;
    static_cast<void>(thief->order("tell await"));
    const std::string number = connected.substr(connected.find(' ') + 1);
    return thief->order("steal " + number) == "stolen" && stage.isDoneThrough(*thief);
}

TEST_F(ConnectionAttacks, AConnectionStolenFromAnUnmarkedClient) {
    expectStoppedBy({"launchMark", "dumpable", "sender"}, [](Stage& stage) {
        return stealsTheConnection(stage, stage.programs().unmarked());
    });
}

// The kernel stops everything here: nobody but root reaches into a process that was started by the
// rules for privileged programs.
TEST_F(ConnectionAttacks, AConnectionStolenFromAGenuineClient) {
    expectFailsWithout({"launchMark", "dumpable", "sender"}, [](Stage& stage) {
        const auto thief = stage.parent("start", stage.programs().genuine());
        lead(*thief, {{"reach", "EPERM EPERM EACCES EPERM"}});
        return stealsTheConnection(stage, stage.programs().genuine());
    });
}

// The kernel refuses to let descriptors through where it can be told to.
TEST_F(ConnectionAttacks, ARequestThatBringsADescriptor) {
    Checks checks{"controlData"};
    if (kernelKnows(kPassRights)) {
        checks.push_back("passedRights");
    }
    expectStoppedBy(checks, [](Stage& stage) {
        const auto client = stage.acceptedClient();
        return stage.isDoneBy(*client, {"greet", "script", "descriptor"});
    });
}

} // namespace
} // namespace qv::test
