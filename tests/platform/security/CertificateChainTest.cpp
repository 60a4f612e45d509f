#include "platform/security/signature/CertificateChain.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "SignatureFixture.h"
#include <unistd.h>

namespace qv::test {
namespace {

using namespace codesign_status;
using testing::Contains;
using testing::HasSubstr;
using testing::Pair;

using Outcome = tl::expected<CertificateChain, SignatureFailure>;

// Anchors in a folder of their own.
class Anchors {
public:
    explicit Anchors(const TestAuthority& authority, std::string_view role = "vendor") {
        authority.anchorIn(folder_.path() / "anchors.d", role);
    }
    [[nodiscard]] std::shared_ptr<const AnchorSet> set() const {
        return TrustAnchors(folder_ / "anchors.d", ::geteuid()).current();
    }
    void add(std::string_view name, std::string_view content) const {
        writeWithMode(folder_.path() / "anchors.d" / name, content, 0644);
    }

private:
    TemporaryDirectory folder_;
};

Outcome build(const std::vector<const TestIdentity*>& identities, const AnchorSet& anchors,
              TimeCheck times = TimeCheck::none) {
    std::vector<X509Handle> certificates;
    certificates.reserve(identities.size());
    for (const TestIdentity* identity : identities) {
        certificates.push_back(identity->copyOfCertificate());
    }
    return CertificateChain::build(certificates, anchors, times);
}

Outcome build(const TestAuthority& authority, TimeCheck times = TimeCheck::none) {
    return build({&authority.leaf, &authority.intermediate}, *Anchors(authority).set(), times);
}

bool isAnchored(const Outcome& chain) {
    const CertificateFacts& last = chain->certificates.back();
    return last.vendorRoot || last.platformRoot || last.trusted;
}

TEST(CertificateChain, RunsFromTheLeafToTheAnchor) {
    const TestAuthority authority;
    const auto chain = build(authority);
    ASSERT_TRUE(chain) << reasonOf(chain);
    ASSERT_EQ(chain->certificates.size(), 3U) << "the anchor need not be in the signature";
    const auto& [leaf, intermediate, root] =
        std::tie(chain->certificates[0], chain->certificates[1], chain->certificates[2]);
    EXPECT_THAT(leaf.subject, Contains(Pair("OU", kTeam)));
    EXPECT_THAT(leaf.extensionOIDs, Contains(kDistributionMarker));
    EXPECT_THAT(intermediate.extensionOIDs, Contains(kIntermediateMarker));
    EXPECT_TRUE(root.vendorRoot);
    EXPECT_FALSE(root.platformRoot || root.trusted || intermediate.vendorRoot || leaf.vendorRoot);
    const auto withRoot = build({&authority.leaf, &authority.root, &authority.intermediate},
                                *Anchors(authority).set());
    ASSERT_TRUE(withRoot) << reasonOf(withRoot);
    EXPECT_EQ(withRoot->certificates.size(), 3U);
}

TEST(CertificateChain, RolesOfTheAnchorComeFromItsFolders) {
    const TestAuthority authority;
    const Anchors anchors(authority, "platform");
    anchors.add("trusted/intermediate.pem", authority.intermediate.certificatePEM());
    const auto chain = build({&authority.leaf, &authority.intermediate}, *anchors.set());
    ASSERT_TRUE(chain) << reasonOf(chain);
    EXPECT_TRUE(chain->certificates[2].platformRoot);
    EXPECT_FALSE(chain->certificates[2].vendorRoot);
    EXPECT_TRUE(chain->certificates[1].trusted);
}

TEST(CertificateChain, UnknownRootIsNoFailureButMarksNothing) {
    const TestAuthority known;
    const TestAuthority stranger; // of the same names
    const Anchors anchors(known);
    anchors.add("trusted/root.pem", known.root.certificatePEM());
    const std::vector<std::vector<const TestIdentity*>> all = {
        {&stranger.leaf, &stranger.intermediate},
        {&stranger.leaf, &stranger.intermediate, &stranger.root},
        {&stranger.leaf}};
    for (const auto& certificates : all) {
        const auto chain = build(certificates, *anchors.set());
        ASSERT_TRUE(chain) << reasonOf(chain);
        EXPECT_EQ(chain->certificates.size(), certificates.size());
        EXPECT_FALSE(isAnchored(chain));
    }
}

TEST(CertificateChain, TrustedIntermediateIsNoEnd) {
    const TestAuthority known;
    const TestAuthority stranger;
    const Anchors anchors(known);
    anchors.add("trusted/intermediate.pem", stranger.intermediate.certificatePEM());
    const auto chain = build({&stranger.leaf, &stranger.intermediate}, *anchors.set());
    ASSERT_TRUE(chain) << reasonOf(chain);
    EXPECT_FALSE(chain->certificates[1].trusted) << "counts below an anchor only";
}

TEST(CertificateChain, ForgedIssuerIsAFailureEvenUnderTheNameOfAnAnchor) {
    CertificateSpec plain = CertificateSpec::root();
    plain.keyIdentifiers = false;
    CertificateSpec intermediate = CertificateSpec::intermediate();
    intermediate.keyIdentifiers = false;
    CertificateSpec leaf = CertificateSpec::leaf();
    leaf.keyIdentifiers = false;
    const TestAuthority known(leaf, intermediate, plain);
    const TestAuthority impostor(leaf, intermediate, plain);
    EXPECT_TRUE(build(known)) << "key identifiers are a convenience";
    const auto forged = build({&impostor.leaf, &impostor.intermediate}, *Anchors(known).set());
    EXPECT_EQ(statusOf(forged), kSignatureFailed) << reasonOf(forged);
    const auto mixed = build({&impostor.leaf, &known.intermediate}, *Anchors(known).set());
    EXPECT_EQ(statusOf(mixed), kSignatureFailed) << reasonOf(mixed);
}

TEST(CertificateChain, HoldsEveryCertificateToItsPlace) {
    struct Case {
        const char* fault;
        CertificateSpec leaf = CertificateSpec::leaf();
        CertificateSpec intermediate = CertificateSpec::intermediate();
        std::int32_t status = kSignatureInvalid;
    };
    const auto leaf = [](auto change) {
        CertificateSpec spec = CertificateSpec::leaf();
        change(spec);
        return spec;
    };
    const auto intermediate = [](auto change) {
        CertificateSpec spec = CertificateSpec::intermediate();
        change(spec);
        return spec;
    };
    const std::vector<Case> cases = {
        {"leaf for mail", leaf([](auto& spec) { spec.extendedKeyUsage = "emailProtection"; })},
        {"leaf for anything",
         leaf([](auto& spec) { spec.extendedKeyUsage = "anyExtendedKeyUsage"; })},
        {"leaf of no purpose", leaf([](auto& spec) { spec.extendedKeyUsage = ""; })},
        {"leaf for agreement", leaf([](auto& spec) { spec.keyUsage = "critical,keyAgreement"; })},
        {"leaf of no usage", leaf([](auto& spec) { spec.keyUsage = ""; })},
        {"leaf as authority", leaf([](auto& spec) {
             spec.basicConstraints = "critical,CA:true";
             spec.keyUsage = "critical,digitalSignature,keyCertSign";
         })},
        {"issuer is no authority", CertificateSpec::leaf(), intermediate([](auto& spec) {
             spec.basicConstraints = "critical,CA:false";
             spec.keyUsage = "critical,digitalSignature";
         })},
        {"issuer may not sign certificates", CertificateSpec::leaf(),
         intermediate([](auto& spec) { spec.keyUsage = "critical,digitalSignature"; })},
        {"issuer for mail", CertificateSpec::leaf(),
         intermediate([](auto& spec) { spec.extendedKeyUsage = "emailProtection"; })},
        {"issuer without constraints", CertificateSpec::leaf(),
         intermediate([](auto& spec) { spec.basicConstraints = ""; })},
        {"issuer with a weak key", CertificateSpec::leaf(),
         intermediate([](auto& spec) { spec.key = KeyKind::rsa1024; })},
        {"issuer on another curve", CertificateSpec::leaf(),
         intermediate([](auto& spec) { spec.key = KeyKind::p521; })},
        {"SHA-1 over the leaf", leaf([](auto& spec) { spec.digest = EVP_sha1(); })},
        {"unknown critical extension in the leaf",
         leaf([](auto& spec) { spec.extensions.push_back({"1.2.3.4", true}); })},
        {"unknown beside a critical marker", leaf([](auto& spec) {
             spec.extensions = {{std::string(kDistributionMarker), true}, {"1.2.3.4", true}};
         })},
        {"unknown critical extension in the issuer", CertificateSpec::leaf(),
         intermediate([](auto& spec) { spec.extensions.push_back({"1.2.3.4", true}); })},
        {"unknown extension, not critical",
         leaf([](auto& spec) { spec.extensions.push_back({"1.2.3.4", false}); }),
         CertificateSpec::intermediate(), kSuccess},
        {"critical markers", leaf([](auto& spec) {
             spec.extensions = {{std::string(kDistributionMarker), true},
                                {std::string(kStoreMarker), true}};
         }),
         intermediate([](auto& spec) { spec.extensions.front().critical = true; }), kSuccess},
        {"RSA", leaf([](auto& spec) { spec.key = KeyKind::rsa2048; }),
         CertificateSpec::intermediate(), kSuccess},
    };
    const TestAuthority stranger;
    for (const Case& each : cases) {
        const TestAuthority authority(each.leaf, each.intermediate);
        const auto chain = build(authority);
        EXPECT_EQ(statusOf(chain), each.status) << each.fault << ": " << reasonOf(chain);
        const auto unanchored =
            build({&authority.leaf, &authority.intermediate}, *Anchors(stranger).set());
        EXPECT_EQ(statusOf(unanchored), each.status)
            << each.fault << " below an unknown root: " << reasonOf(unanchored);
    }
}

TEST(CertificateChain, LengthConstraintsCount) {
    const TestAuthority authority;
    const TestIdentity below = authority.intermediate.issue(CertificateSpec::intermediate("Below"));
    const TestIdentity leaf = below.issue(CertificateSpec::leaf());
    const auto chain = build({&leaf, &below, &authority.intermediate}, *Anchors(authority).set());
    EXPECT_EQ(statusOf(chain), kSignatureInvalid) << "pathlen:0 allows no authority below";
    EXPECT_THAT(reasonOf(chain), HasSubstr("path length"));
}

TEST(CertificateChain, DepthIsBounded) {
    const TestAuthority authority;
    CertificateSpec spec = CertificateSpec::intermediate();
    spec.basicConstraints = "critical,CA:true";
    std::vector<TestIdentity> issuers;
    issuers.push_back(authority.root.issue(spec));
    while (issuers.size() < 5) {
        spec.commonName += "+";
        issuers.push_back(issuers.back().issue(spec));
    }
    const TestIdentity four = issuers[3].issue(CertificateSpec::leaf());
    const TestIdentity five = issuers[4].issue(CertificateSpec::leaf());
    const auto anchors = Anchors(authority).set();
    EXPECT_EQ(
        statusOf(build({&four, issuers.data(), &issuers[1], &issuers[2], &issuers[3]}, *anchors)),
        kSuccess);
    EXPECT_EQ(
        statusOf(build({&five, issuers.data(), &issuers[1], &issuers[2], &issuers[3], &issuers[4]},
                       *anchors)),
        kSignatureInvalid);
}

TEST(CertificateChain, CertificatesBesideTheChainAreRefused) {
    const TestAuthority authority;
    const TestAuthority other;
    const auto anchors = Anchors(authority).set();
    const auto chain = build({&authority.leaf, &authority.intermediate, &other.root}, *anchors);
    EXPECT_EQ(statusOf(chain), kSignatureInvalid);
    EXPECT_THAT(reasonOf(chain), HasSubstr("no part of the chain"));
}

TEST(CertificateChain, TimeCountsOnDemandOnly) {
    const auto expired = [](CertificateSpec spec) {
        spec.validFromDays = -20;
        spec.validToDays = -10;
        return spec;
    };
    const auto future = [](CertificateSpec spec) {
        spec.validFromDays = 10;
        return spec;
    };
    const CertificateSpec leaf = CertificateSpec::leaf();
    const CertificateSpec middle = CertificateSpec::intermediate();
    for (const TestAuthority& authority :
         {TestAuthority(expired(leaf)), TestAuthority(future(leaf)),
          TestAuthority(leaf, expired(middle)),
          TestAuthority(leaf, middle, expired(CertificateSpec::root()))}) {
        EXPECT_EQ(statusOf(build(authority)), kSuccess);
        EXPECT_EQ(statusOf(build(authority, TimeCheck::now)), kCertificateExpired);
    }
    EXPECT_EQ(statusOf(build(TestAuthority(), TimeCheck::now)), kSuccess);
}

TEST(CertificateChain, AnyRevokedCertificateRevokes) {
    const TestAuthority authority;
    for (const TestIdentity* revoked :
         {&authority.leaf, &authority.intermediate, &authority.root}) {
        const Anchors anchors(authority);
        anchors.add("revoked", "# bad ones\n" + revoked->fingerprint() + " # stolen\n");
        const auto chain = build({&authority.leaf, &authority.intermediate}, *anchors.set());
        EXPECT_EQ(statusOf(chain), kCertificateRevoked) << reasonOf(chain);
    }
}

TEST(CertificateChain, TellsWhatRequirementsAskAbout) {
    CertificateSpec spec = CertificateSpec::leaf();
    spec.units = {"one", "Zwei \xC3\xBC"};
    spec.extensions = {{"1.2.840.113635.100.6.1.33", false,
                        "DER:180f32303130303130313030303030305a"}, // 2010-01-01 00:00:00
                       {"1.2.3.4", false, "DER:180f32303130303130313030303030305aff"},
                       {"2.5.29.32", true, "DER:300d300b06092a864886f763640501"}};
    const auto chain = build(TestAuthority(spec));
    ASSERT_TRUE(chain) << reasonOf(chain);
    const CertificateFacts& leaf = chain->certificates.front();
    EXPECT_THAT(leaf.subject, testing::ElementsAre(Pair("CN", "Test Signer"), Pair("OU", "one"),
                                                   Pair("OU", "Zwei \xC3\xBC")));
    EXPECT_THAT(leaf.timestamps,
                testing::ElementsAre(Pair("1.2.840.113635.100.6.1.33", Date{283'996'800.0})));
    EXPECT_THAT(leaf.policyOIDs, testing::ElementsAre("1.2.840.113635.100.5.1"));
}

} // namespace
} // namespace qv::test
