#include "platform/foundation/os/Descriptor.h"
#include "platform/security/signature/SignatureTrailer.h"
#include "support/BuildFolder.h"

#include <fmt/core.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "SignatureFixture.h"
#include <fcntl.h>
#include <set>
#include <unistd.h>

namespace qv::test {
namespace {

using namespace codesign_status;
using std::chrono::steady_clock;

// Replaces the trailer of a program by one of other parts.
void writeTrailer(const SignedProgram& program, const std::string& directory,
                  const std::string& cms) {
    SignatureTrailer trailer;
    trailer.directory = directory;
    trailer.cms = cms;
    program.folder().write("program", contentOf("/bin/true") + trailer.encoded());
}

// The same with a directory that the authority's leaf really signed.
void signDirectory(const SignedProgram& program, const CodeDirectory& directory,
                   const TestIdentity& signer = authority().leaf) {
    const std::string bytes = directory.encoded().value();
    writeTrailer(program, bytes,
                 cmsOver(bytes, {.signers = {&signer}, .others = {&authority().intermediate}}));
}

TEST(StaticCode, TellsFactsOfGoodSignature) {
    SignedProgram program(authority());
    ASSERT_TRUE(program.sign([](SigningRequest& request) {
        request.platform = 7;
        request.info = Value::dictionary({{"CFBundleVersion", Value::string("1.0.3")}});
        request.entitlements = Value::dictionary({{"com.example.right", Value::boolean(true)}});
    }));
    const StaticCode code = program.examined();
    EXPECT_EQ(code.status(), kSuccess) << code.reason();
    EXPECT_EQ(code.reason(), "");
    EXPECT_TRUE(code.hasTrailer() && code.signatureIntact() && code.digestMatches());
    EXPECT_FALSE(code.getTaskAllow());
    EXPECT_EQ(code.directoryFlags(), 0x300U);
    EXPECT_EQ(code.facts().identifier, "com.larkwen.QVCatalogHelper");
    EXPECT_EQ(code.facts().team, kTeam);
    EXPECT_EQ(code.facts().platform, 7U);
    EXPECT_EQ(code.facts().info.find("CFBundleVersion")->asString(), "1.0.3");
    EXPECT_TRUE(code.facts().entitlements.find("com.example.right")->asBoolean());
    ASSERT_EQ(code.facts().chain.size(), 3U);
    EXPECT_TRUE(code.facts().chain.back().vendorRoot);
}

TEST(StaticCode, TellsUnsignedFromUnknown) {
    SignedProgram program(authority());
    const StaticCode plain = program.examined();
    EXPECT_EQ(plain.status(), kUnsigned);
    EXPECT_FALSE(plain.hasTrailer() || plain.signatureIntact() || plain.digestMatches());
    program.folder().write("program", "#!/bin/sh\n");
    EXPECT_EQ(program.examined().status(), kBadObjectFormat);
    const auto anchors = program.anchors().current();
    EXPECT_EQ(StaticCode::examine(-1, {.anchors = *anchors}).status(), kErrnoBase + EBADF);
}

TEST(StaticCode, ReportsFirstFaultInItsOrder) {
    const std::string bytes = contentOf("/bin/true");
    SignedProgram program(authority());
    const CodeDirectory good = directoryFor(bytes);

    CodeDirectory shorter = good;
    --shorter.coveredLength;
    signDirectory(program, shorter);
    EXPECT_EQ(program.examined().status(), kSignatureInvalid);
    EXPECT_FALSE(program.examined().digestMatches());

    CodeDirectory otherTeam = good;
    otherTeam.team = "ANOTHERTEAM\n";
    otherTeam.digest.fill(0);
    signDirectory(program, otherTeam);
    const StaticCode code = program.examined();
    EXPECT_EQ(code.status(), kBadTeamIdentifier) << "the digest is wrong, too";
    EXPECT_TRUE(code.signatureIntact());
    EXPECT_FALSE(code.digestMatches());
    EXPECT_THAT(code.reason(), testing::HasSubstr("ANOTHERTEAM\\x0a"));

    writeTrailer(program, "no list", cmsOver("no list", {.signers = {&authority().leaf}}));
    EXPECT_EQ(program.examined().status(), kBadDictionaryFormat);
    EXPECT_TRUE(program.examined().signatureIntact());
    writeTrailer(program, good.encoded().value(),
                 cmsOver("other", {.signers = {&authority().leaf}}));
    EXPECT_EQ(program.examined().status(), kSignatureFailed);
    EXPECT_FALSE(program.examined().signatureIntact());
    EXPECT_EQ(program.examined().facts().identifier, "") << "the list must not even be read";
}

TEST(StaticCode, WantsTeamAsSignersOnlyUnit) {
    SignedProgram program(authority());
    const CodeDirectory directory = directoryFor(contentOf("/bin/true"));
    for (const std::vector<std::string>& units :
         {std::vector<std::string>{}, {std::string(kTeam), "OTHER"}, {"t4kq8zp3wm"}}) {
        CertificateSpec spec = CertificateSpec::leaf();
        spec.units = units;
        signDirectory(program, directory, authority().intermediate.issue(spec));
        EXPECT_EQ(program.examined().status(), kBadTeamIdentifier) << units.size();
    }
    signDirectory(program, directory);
    EXPECT_EQ(program.examined().status(), kSuccess);
}

TEST(StaticCode, HeedsTermsWhereDirectoryAsks) {
    SignedProgram program(authority());
    CodeDirectory directory = directoryFor(contentOf("/bin/true"));
    struct Case {
        int firstDay;
        int lastDay;
        std::uint32_t flag;
        std::int32_t status;
    };
    for (const Case& each : {Case{-20, -10, 0, kSuccess},
                             {-20, -10, code_flags::kCheckExpiration, kCertificateExpired},
                             {10, 20, code_flags::kCheckExpiration, kCertificateExpired},
                             {-20, 10, code_flags::kCheckExpiration, kSuccess}}) {
        CertificateSpec spec = CertificateSpec::leaf();
        spec.validFromDays = each.firstDay;
        spec.validToDays = each.lastDay;
        directory.flags = code_flags::kHard | each.flag;
        signDirectory(program, directory, authority().intermediate.issue(spec));
        const StaticCode code = program.examined();
        EXPECT_EQ(code.status(), each.status) << code.reason();
        EXPECT_TRUE(code.signatureIntact() && code.digestMatches())
            << "flags are told before the status";
    }
    EXPECT_EQ(program.examined(steady_clock::now()).status(), kCancelled);
}

// Flips bits of a signed file in place, and judges each result.
class Mutations {
public:
    explicit Mutations(const SignedProgram& program)
        : program_(program), file_(::open(program.path().c_str(), O_RDWR | O_CLOEXEC)),
          bytes_(contentOf(program.path())) {}

    [[nodiscard]] std::uint64_t size() const { return bytes_.size(); }
    StaticCode flipped(std::uint64_t byte, unsigned bit) const {
        const char changed = static_cast<char>(bytes_[byte] ^ (1 << bit));
        write(byte, changed);
        StaticCode code = program_.examinedUnder(anchors_);
        write(byte, bytes_[byte]);
        return code;
    }

private:
    void write(std::uint64_t byte, char value) const {
        ASSERT_EQ(::pwrite(file_.get(), &value, 1, static_cast<off_t>(byte)), 1);
    }
    const SignedProgram& program_;
    // Nothing happens to the anchors: a clock that runs ahead spares reading them every time.
    TrustAnchors anchors_{program_.anchorFolder(), ::geteuid(),
                          [] { return std::chrono::system_clock::now() + std::chrono::hours(1); }};
    Descriptor file_;
    std::string bytes_;
};

const std::set<std::int32_t> kRefusals = {kSignatureInvalid, kSignatureUnsupported,
                                          kSignatureFailed,  kBadDictionaryFormat,
                                          kUnsigned,         kUnsupportedDigestAlgorithm};

// The signature's own root is optional: without it a flipped bit in the name of an issuer may make
// the chain end at a stranger, and so cost the anchor.
TEST(StaticCode, AcceptsNoFlippedBit) {
    for (const bool hasRoot : {true, false}) {
        SignedProgram program(authority());
        const auto root = program.folder().write("root.pem", authority().root.certificatePEM());
        ASSERT_TRUE(program.sign([&](SigningRequest& request) {
            request.intermediatePaths.resize(hasRoot ? 2 : 1, root);
        }));
        const Mutations mutations(program);
        ASSERT_EQ(program.examined().status(), kSuccess) << program.examined().reason();
        const std::uint64_t covered = contentOf("/bin/true").size();
        const auto expectRefused = [&](std::uint64_t byte, unsigned bit) {
            const StaticCode code = mutations.flipped(byte, bit);
            if (code.status() == kSuccess && !hasRoot) {
                ASSERT_EQ(code.facts().chain.size(), 2U);
                ASSERT_FALSE(code.facts().chain.back().vendorRoot);
            } else {
                ASSERT_TRUE(kRefusals.contains(code.status()))
                    << "byte " << byte << ", bit " << bit << ": " << code.status() << " "
                    << code.reason() << ", the program has " << covered << " bytes";
            }
        };
        const std::uint64_t step = isSanitized() ? 7 : 1;
        for (std::uint64_t byte = covered; byte < mutations.size(); byte += step) {
            ASSERT_NO_FATAL_FAILURE(expectRefused(byte, static_cast<unsigned>(byte % 8)));
        }
        for (std::uint64_t byte = 0; byte < covered; byte += byte < 64 ? 1 : 997) {
            ASSERT_NO_FATAL_FAILURE(expectRefused(byte, static_cast<unsigned>(byte % 8)));
        }
    }
}

} // namespace
} // namespace qv::test
