// The service holds as much after many clients as before.

#include "service/ServiceTest.h"
#include "support/BuildFolder.h"

namespace qv::test {
namespace {

const int kMany = isSanitized() ? 60 : 200;
constexpr int kWarmingUp = 20;
const std::size_t kTolerance = isSanitized() ? 16'000 : 1000; // kilobytes

class Resources : public ServiceTest {
protected:
    template <typename Round> void expectNothingKept(const Round& round) {
        ASSERT_TRUE(client_->execute(Value::array({}))) << "counted, so that the service stays";
        // The watch on a sender begins after its reply: with the next reply it is there.
        ASSERT_TRUE(client_->execute(Value::array({})));
        const std::size_t descriptors = service_->descriptors();
        for (int i = 0; i < kWarmingUp; ++i) {
            ASSERT_NO_FATAL_FAILURE(round());
        }
        EXPECT_TRUE(fallsTo(descriptors)) << service_->descriptors() << " from " << descriptors;
        const std::size_t memory = service_->residentKilobytes();
        for (int i = 0; i < kMany; ++i) {
            ASSERT_NO_FATAL_FAILURE(round());
        }
        EXPECT_TRUE(fallsTo(descriptors)) << service_->descriptors() << " from " << descriptors;
        EXPECT_LT(service_->residentKilobytes(), memory + kTolerance);
    }
};

TEST_F(Resources, OfRejectedClientsAreGivenBack) {
    Puppet stranger(Puppet::unsignedProgram());
    expectNothingKept([&] { ASSERT_FALSE(stranger.connect(service_->socketPath())); });
}

TEST_F(Resources, OfServedConnectionsAreGivenBack) {
    Puppet other;
    const auto round = [&] {
        ASSERT_TRUE(other.connect(service_->socketPath()));
        ASSERT_TRUE(other.executeData("({ operation = 8; arg1 = /bin/false; })"));
    };
    ASSERT_NO_FATAL_FAILURE(round()); // its end is watched from here on
    expectNothingKept(round);
}

TEST_F(Resources, OfServedProcessesAreGivenBack) {
    ASSERT_TRUE(client_->execute(Value::array({}))); // counted, so that the service stays
    ASSERT_TRUE(servesOthers());                     // the loop keeps what it makes on first use
    expectNothingKept([&] { ASSERT_TRUE(servesOthers()); });
}

} // namespace
} // namespace qv::test
