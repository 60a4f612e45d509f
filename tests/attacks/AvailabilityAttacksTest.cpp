// Keeping others from being served. The attacker needs genuine clients for all of it: nobody else
// is listened to.

#include <fmt/format.h>

#include "attacks/AttackTest.h"

namespace qv::test {
namespace {

using enum Weakness;

class AvailabilityAttacks : public AttackTest {};

TEST_F(AvailabilityAttacks, AFloodOfConnectionsOfOneUser) {
    expectStoppedBy({usersConnections}, [](Stage& stage) {
        const auto client = stage.client(stage.programs().genuine());
        EXPECT_TRUE(client->order("many 80").starts_with("greeted "));
        return !stage.servesOthers();
    });
}

// Strangers who are turned away at once count as nobody's connections; each of these takes long.
TEST_F(AvailabilityAttacks, AFloodOfStrangersWhoAreHardToJudge) {
    expectStoppedBy({usersStrangers}, [](Stage& stage) {
        stage.hold();
        const auto crowd = stage.start({"crowd", stage.socketPath()});
        EXPECT_EQ(crowd->answer(), "waiting");
        stage.letGo();
        return !stage.servesOthers();
    });
}

TEST_F(AvailabilityAttacks, HalfARequest) {
    expectStoppedBy({nonBlocking}, [](Stage& stage) {
        const auto client = stage.acceptedClient();
        EXPECT_EQ(client->order("half"), "sent");
        return !stage.servesOthers();
    });
}

// Its replies fill the connection, and nobody reads them.
TEST_F(AvailabilityAttacks, AStoppedClient) {
    expectStoppedBy({nonBlocking}, [](Stage& stage) {
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
