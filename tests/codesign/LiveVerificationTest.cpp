#include "codesign/ClientVerification.h"
#include "codesign/QVCodeSignatureVerifier.h"
#include "platform/security/guest/GuestServices.h"
#include "platform/security/requirement/CodeSigningStatus.h"
#include "support/ClientProcess.h"
#include "support/ErrorMatchers.h"
#include "support/InstalledPrograms.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <unistd.h>

namespace qv::test {
namespace {

using testing::Contains;
using testing::HasSubstr;
using testing::Not;

constexpr std::uint32_t kRequired = 768;

/// The verifier over the real services and real processes, called as the service calls it.
class LiveVerification : public testing::Test {
protected:
    void SetUp() override {
        if (::geteuid() != 0) {
            GTEST_SKIP() << "needs root: looks into processes of other users";
        }
        programs_.emplace();
        if (programs_->ignoresSetGroup()) {
            GTEST_SKIP() << "needs a temporary folder whose mount is not nosuid";
        }
        services_.emplace(programs_->configuration());
    }
    Error verify(const std::filesystem::path& program) {
        return verify(ClientProcess(ClientProcess::Options::asNobody(program)));
    }
    Error verify(const ClientProcess& client) {
        return QVCodeSignatureVerifier(programOf(client, *services_), kTeam, kRequired, *services_)
            .verifyRequirements();
    }
    std::optional<InstalledPrograms> programs_;
    std::optional<GuestServices> services_;
};

TEST_F(LiveVerification, AcceptsMarkedAndDebuggableClients) {
    EXPECT_FALSE(verify(programs_->debuggableClient("debuggable")));
    EXPECT_FALSE(verify(programs_->markedClient("hard", 0x300)));
    EXPECT_FALSE(verify(programs_->markedClient("hardened", 0x10000)));
}

TEST_F(LiveVerification, RefusesOthersInGivenOrder) {
    constexpr std::string_view kFlagsDomain = "QVCodeSignatureVerifierDomain";
    EXPECT_THAT(verify(programs_->unsignedClient("unsigned")), failsWith(kFlagsDomain, 1));
    EXPECT_THAT(verify(programs_->signedClient("unmarked", 0x10300)), failsWith(kFlagsDomain, 1));
    const std::filesystem::path stranger = programs_->strangersClient("stranger", 0x300);
    install(stranger, 0, kClientGroup, 02755);
    EXPECT_THAT(verify(stranger), failsWith(error_domain::kOSStatus, codesign_status::kReqFailed));
    const std::filesystem::path changed = programs_->markedClient("changed", 0x300);
    changeOneByte(changed);
    install(changed, 0, kClientGroup, 02755);
    EXPECT_THAT(verify(changed),
                failsWith(error_domain::kOSStatus, codesign_status::kSignatureFailed));
    ClientProcess gone(ClientProcess::Options::asNobody(programs_->debuggableClient("gone")));
    gone.kill();
    EXPECT_THAT(verify(gone),
                failsWith(error_domain::kOSStatus, codesign_status::kErrnoBase + ESRCH));
}

TEST(ClientVerification, WarnsOfMissingGroupAndAnchors) {
    const ClientVerification verification;
    EXPECT_EQ(verification.clientGroup(), kClientGroup) << "a developer's build names a number";
    EXPECT_THAT(verification.warnings(), Not(Contains(HasSubstr("group"))));
    if (!std::filesystem::exists(ClientVerification::anchorsDirectory())) {
        EXPECT_THAT(verification.warnings(), Contains(HasSubstr("no client can be trusted")));
    }
}

} // namespace
} // namespace qv::test
