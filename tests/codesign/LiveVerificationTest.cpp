#include "codesign/ClientVerification.h"
#include "codesign/QVCodeSignatureVerifier.h"
#include "platform/security/guest/GuestServices.h"
#include "platform/security/requirement/CodeSigningStatus.h"
#include "support/ClientProcess.h"
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
constexpr std::int32_t kNoProcess = codesign_status::kErrnoBase + ESRCH;

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

TEST_F(LiveVerification, RefusesOthersInTheGivenOrder) {
    const auto flagsError = [](const Error& error) {
        return error.domain() == "QVCodeSignatureVerifierDomain" ? error.localizedDescription()
                                                                 : error.description();
    };
    EXPECT_EQ(flagsError(verify(programs_->unsignedClient("unsigned"))),
              "Codesigning flags requirements not fulfilled: actual=0, required=300");
    EXPECT_EQ(flagsError(verify(programs_->signedClient("unmarked", 0x10300))),
              "Codesigning flags requirements not fulfilled: actual=20000001, required=300");

    const auto marked = [this](const std::filesystem::path& program) {
        install(program, 0, kClientGroup, 02755);
        return verify(program);
    };
    const Error stranger = marked(programs_->strangersClient("stranger", 0x300));
    ASSERT_TRUE(stranger);
    EXPECT_EQ(stranger.code(), codesign_status::kReqFailed);
    EXPECT_THAT(stranger.userInfo().find("NSUnderlyingError")->asError().description(),
                HasSubstr("anchor apple generic"));

    const std::filesystem::path changed = programs_->markedClient("changed", 0x300);
    changeOneByte(changed);
    const Error tampered = marked(changed);
    ASSERT_TRUE(tampered);
    EXPECT_EQ(tampered.code(), codesign_status::kSignatureFailed);
}

TEST_F(LiveVerification, RefusesAClientThatIsGone) {
    ClientProcess client(ClientProcess::Options::asNobody(programs_->debuggableClient("gone")));
    client.kill();
    testing::internal::CaptureStderr();
    const Error error = verify(client);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    ASSERT_TRUE(error);
    EXPECT_EQ(error.code(), kNoProcess);
}

TEST(ClientVerification, WarnsOfWhatKeepsEveryClientOut) {
    const ClientVerification verification;
    EXPECT_EQ(verification.clientGroup(), kClientGroup) << "a developer's build names a number";
    EXPECT_THAT(verification.warnings(), Not(Contains(HasSubstr("group"))));
    const auto ofAnchors = Contains(HasSubstr("no client can be trusted"));
    if (!std::filesystem::exists(ClientVerification::anchorsDirectory())) {
        EXPECT_THAT(verification.warnings(), ofAnchors);
    }
}

} // namespace
} // namespace qv::test
