// Attacks that keep others from being served. The attacker needs genuine clients for all of it:
// nobody else is listened to.

#include "attacks/AttackTest.h"
#include <ctime>
#include <sys/stat.h>
#include <thread>

namespace qv::test {
namespace {

// Whether it is old enough for a judgement of it to be remembered.
bool isSettled(const std::string& program) {
    struct stat info{};
    return ::stat(program.c_str(), &info) == 0 && ::time(nullptr) - info.st_ctime > 3;
}

class AvailabilityAttacks : public AttackTest {};

TEST_F(AvailabilityAttacks, AFloodOfConnectionsOfOneUser) {
    expectStoppedBy({"usersConnections"}, [](Stage& stage) {
        const auto client = stage.acceptedClient();
        // Connections that come before the signature is remembered count as a stranger's.
        bool isServed = true;
        for (int attempt = 0; isServed && attempt < 5; ++attempt) {
            lead(*client, {{"many 80", "opened"}});
            isServed = stage.servesOthers();
        }
        return !isServed;
    });
}

// Strangers who are turned away at once count as nobody's connections; each of these takes long,
// because he is signed, and once his signature is remembered nothing else holds him up.
TEST_F(AvailabilityAttacks, AFloodOfStrangersWhoAreHardToJudge) {
    constexpr std::size_t kCrowds = 4; // each has all the descriptors that a process may have
    const std::string program = programs()->unmarked();
    while (!isSettled(program)) {
        std::this_thread::yield();
    }
    expectStoppedBy({"usersStrangers"}, [&](Stage& stage) {
        const auto stranger = [&](std::string_view order) {
            auto started = stage.client(program);
            lead(*started, {{"map 1000", "mapped"}, {std::string(order), "opened"}});
            return started;
        };
        const auto first = stranger("many 1");
        EXPECT_TRUE(stage.service().waitForLog("rejected"));
        stage.hold();
        std::vector<std::unique_ptr<LedProgram>> crowds;
        while (crowds.size() < kCrowds) {
            crowds.push_back(stranger("many 900"));
        }
        stage.letGo();
        return !stage.servesOthers();
    });
}

TEST_F(AvailabilityAttacks, HalfARequest) {
    expectStoppedBy({"nonBlocking"}, [](Stage& stage) {
        const auto client = stage.acceptedClient();
        lead(*client, {{"greet", "greeted"}, {"half", "sent"}});
        return !stage.servesOthers();
    });
}

// Its replies fill the connection, and nobody reads them.
TEST_F(AvailabilityAttacks, AStoppedClient) {
    expectStoppedBy({"nonBlocking"}, [](Stage& stage) {
        const auto parent = stage.parent("start", stage.programs().genuine());
        lead(*parent,
             {{"tell connect", "connected"}, {"tell greet", "greeted"}, {"tell long", "noted"}});
        constexpr int kMoreThanFits = 5; // of replies as long as these
        for (int i = 0; i < kMoreThanFits; ++i) {
            lead(*parent, {{"tell queue", "sent"}});
        }
        lead(*parent, {{"stop", "stopped"}});
        EXPECT_TRUE(stage.service().waitForLog("script raised an exception", kMoreThanFits - 1));
        return !stage.servesOthers();
    });
}

} // namespace
} // namespace qv::test
