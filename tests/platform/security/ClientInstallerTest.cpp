// The decisions of a build or a machine about installing clients; the rest is tested through the
// command.

#include "platform/security/install/ClientInstaller.h"

#include "platform/security/SignatureFixture.h"
#include "platform/security/guest/GuestServices.h"
#include "platform/security/requirement/Requirement.h"
#include "platform/security/signature/SignatureTrailer.h"
#include "support/SmallFileSystem.h"

#include <gmock/gmock.h>

#include <unistd.h>

namespace qv::test {
namespace {

using testing::HasSubstr;

constexpr gid_t kGroup = 47110;

/// A program in a folder of root, and the configuration of a packaged service.
class ClientInstallerTest : public testing::Test {
protected:
    void SetUp() override {
        if (::geteuid() != 0) {
            GTEST_SKIP() << "needs root: installs programs";
        }
        ASSERT_TRUE(program_.sign());
        configuration_.anchorsDirectory = program_.anchorFolder();
        configuration_.clientGroup = kGroup;
    }
    // Status 0 and no reason for success.
    void expectOutcome(std::int32_t status, std::string_view reason,
                       const std::filesystem::path& destination = {}) const {
        const auto requirement = Requirement::compile("anchor apple generic");
        const InstallRequest request{
            .source = program_.path(),
            .destination = destination.empty() ? program_.folder() / "client" : destination,
            .sufficientFlags = {0x300},
            .whyNoGroup = "group _example: there is no such group"};
        const auto outcome =
            ClientInstaller::install(request, {&requirement.value(), 1}, configuration_);
        EXPECT_EQ(outcome ? 0 : outcome.error().code(), status);
        EXPECT_THAT(outcome ? "" : outcome.error().description(), HasSubstr(reason));
        EXPECT_EQ(std::filesystem::exists(request.destination), outcome.has_value());
    }

    TestAuthority authority_;
    SignedProgram program_{authority_};
    CodeSigningConfiguration configuration_;
};

TEST_F(ClientInstallerTest, NeedsClientGroup) {
    expectOutcome(0, "");
    std::filesystem::remove(program_.folder() / "client");
    configuration_.clientGroup.reset();
    expectOutcome(codesign_status::kErrnoBase + ENOENT,
                  "group _example: there is no such group; systemd-sysusers makes the group");
}

TEST_F(ClientInstallerTest, TakesFileSystemsThatLookUpsTake) {
    const SmallFileSystem memory(program_.folder() / "memory");
    ASSERT_TRUE(memory.isMounted());
    std::filesystem::permissions(program_.folder() / "memory", std::filesystem::perms(0755));
    expectOutcome(codesign_status::kSignatureNotVerifiable, "a file system of the type \"tmpfs\"",
                  memory / "client");
    configuration_.allowTemporaryFileSystems = true;
    expectOutcome(0, "", memory / "client");
}

TEST_F(ClientInstallerTest, TakesFoldersOfAnchorsOwner) {
    constexpr uid_t kOwner = 12345;
    const std::filesystem::path folder = program_.folder() / "checkout";
    std::filesystem::create_directory(folder);
    ASSERT_EQ(::chown(folder.c_str(), kOwner, kOwner), 0);
    expectOutcome(codesign_status::kErrnoBase + EACCES, "checkout: belongs to user 12345",
                  folder / "client");
    configuration_.anchorOwner = kOwner;
    expectOutcome(0, "", folder / "client");
}

TEST_F(ClientInstallerTest, RefusesExpiredSigner) {
    CertificateSpec spec = CertificateSpec::leaf();
    spec.validFromDays = -20;
    spec.validToDays = -10;
    const TestIdentity expired = authority_.intermediate.issue(spec);
    CodeDirectory directory = directoryFor(contentOf("/bin/true"));
    directory.flags |= code_flags::kCheckExpiration;
    SignatureTrailer trailer;
    trailer.directory = directory.encoded().value();
    trailer.cms =
        cmsOver(trailer.directory, {.signers = {&expired}, .others = {&authority_.intermediate}});
    program_.folder().write("program", contentOf("/bin/true") + trailer.encoded());
    expectOutcome(codesign_status::kCertificateExpired, "program: ");
}

} // namespace
} // namespace qv::test
