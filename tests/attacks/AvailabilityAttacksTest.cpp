// Keeping others from being served. The attacker needs genuine clients for all of it: nobody else
// is listened to.

#include <fmt/core.h>

#include "attacks/AttackTest.h"
#include <ctime>
#include <sys/stat.h>
#include <thread>

namespace qv::test {
namespace {

// Old enough for a judgement of it to be remembered.
bool isSettled(const std::string& program) {
    struct stat info{};
    return ::stat(program.c_str(), &info) == 0 && ::time(nullptr) - info.st_ctime > 3;
}

class AvailabilityAttacks : public AttackTest {};

TEST_F(AvailabilityAttacks, AFloodOfConnectionsOfOneUser) {
    expectStoppedBy({"usersConnections"}, [](Stage& stage) {
        const auto client = stage.client(stage.programs().genuine());
        EXPECT_TRUE(client->order("many 80").starts_with("greeted "));
        return !stage.servesOthers();
    });
}

// Strangers who are turned away at once count as nobody's connections; each of these takes long,
// because he is signed, and once his signature is remembered nothing else holds him up.
TEST_F(AvailabilityAttacks, AFloodOfStrangersWhoAreHardToJudge) {
    constexpr std::size_t kCrowds = 4; // each has all the descriptors that a process may have
    const std::string program = *programs() / "crowd";
    while (!isSettled(program)) {
        std::this_thread::yield();
    }
    expectStoppedBy({"usersStrangers"}, [&](Stage& stage) {
        const auto first = stage.start({program, stage.socketPath(), "1"});
        EXPECT_EQ(first->answer(), "waiting");
        EXPECT_TRUE(stage.service().waitForLog("rejected"));
        stage.hold();
        std::vector<std::unique_ptr<LedProgram>> crowds;
        while (crowds.size() < kCrowds) {
            crowds.push_back(stage.start({program, stage.socketPath(), "900"}));
            EXPECT_EQ(crowds.back()->answer(), "waiting");
        }
        stage.letGo();
        return !stage.servesOthers();
    });
}

TEST_F(AvailabilityAttacks, HalfARequest) {
    expectStoppedBy({"nonBlocking"}, [](Stage& stage) {
        const auto client = stage.acceptedClient();
        EXPECT_EQ(client->order("half"), "sent");
        return !stage.servesOthers();
    });
}

// Its replies fill the connection, and nobody reads them.
TEST_F(AvailabilityAttacks, AStoppedClient) {
    expectStoppedBy({"nonBlocking"}, [](Stage& stage) {
        const auto neighbour =
            stage.start({"neighbour", stage.programs().genuine(), stage.socketPath()});
        EXPECT_EQ(neighbour->answer(), "started");
        EXPECT_TRUE(neighbour->order("tell connect").starts_with("connected"));
        EXPECT_EQ(neighbour->order("tell greet"), "greeted");
        constexpr int kMoreThanFits = 5; // of replies as long as these
        EXPECT_EQ(neighbour->order(fmt::format("tell burst {}", kMoreThanFits)), "sent");
        EXPECT_EQ(neighbour->order("stop"), "stopped");
        EXPECT_TRUE(stage.service().waitForLog("script raised an exception", kMoreThanFits - 1));
        return !stage.servesOthers();
    });
}

} // namespace
} // namespace qv::test
