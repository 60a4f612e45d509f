#include "platform/security/signature/CertificateChain.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "SignatureFixture.h"
#include <unistd.h>

namespace qv::test {
namespace {

using namespace codesign_status;
using testing::Contains;
using testing::ElementsAre;
using testing::Pair;

using Outcome = tl::expected<CertificateChain, SignatureFailure>;

// Anchors in a folder of their own: the root of an authority, and more of its role `trusted`.
std::shared_ptr<const AnchorSet> anchorsOf(const TestAuthority& authority,
                                           const TestIdentity* trusted = nullptr,
                                           std::string_view role = "vendor") {
    const TemporaryDirectory folder;
    authority.anchorIn(folder.path() / "anchors.d", role);
    if (trusted != nullptr) {
        writeWithMode(folder.path() / "anchors.d/trusted/one.pem", trusted->certificatePEM(), 0644);
    }
    return TrustAnchors(folder / "anchors.d", ::geteuid()).current();
}

Outcome build(const std::vector<const TestIdentity*>& identities, const AnchorSet& anchors) {
    std::vector<X509Handle> certificates;
    certificates.reserve(identities.size());
    for (const TestIdentity* identity : identities) {
        certificates.push_back(identity->copyOfCertificate());
    }
    return CertificateChain::build(certificates, anchors, TimeCheck::none);
}

TEST(CertificateChain, RunsFromLeafToAnchor) {
    const TestAuthority& made = authority();
    for (const auto& given : {std::vector{&made.leaf, &made.intermediate},
                              std::vector{&made.leaf, &made.root, &made.intermediate}}) {
        const auto chain = build(given, *anchorsOf(made));
        ASSERT_TRUE(chain) << reasonOf(chain);
        ASSERT_EQ(chain->certificates.size(), 3U) << "the anchor need not be in the signature";
        const auto& [leaf, intermediate, root] =
            std::tie(chain->certificates[0], chain->certificates[1], chain->certificates[2]);
        EXPECT_THAT(leaf.extensionOIDs, Contains(kDistributionMarker));
        EXPECT_THAT(intermediate.extensionOIDs, Contains(kIntermediateMarker));
        EXPECT_TRUE(root.vendorRoot);
        EXPECT_FALSE(root.platformRoot || root.trusted || intermediate.vendorRoot);
    }
    const auto other =
        build({&made.leaf, &made.intermediate}, *anchorsOf(made, &made.intermediate, "platform"));
    ASSERT_TRUE(other) << reasonOf(other);
    EXPECT_TRUE(other->certificates[2].platformRoot && other->certificates[1].trusted);
    EXPECT_FALSE(other->certificates[2].vendorRoot);
}

TEST(CertificateChain, MarksNothingBelowUnknownRoot) {
    const TestAuthority stranger; // of the same names
    for (const auto& certificates :
         {std::vector{&stranger.leaf, &stranger.intermediate},
          std::vector{&stranger.leaf, &stranger.intermediate, &stranger.root},
          std::vector{&stranger.leaf}}) {
        const auto chain = build(certificates, *anchorsOf(authority(), &stranger.intermediate));
        ASSERT_TRUE(chain) << reasonOf(chain);
        EXPECT_EQ(chain->certificates.size(), certificates.size());
        for (const CertificateFacts& facts : chain->certificates) {
            EXPECT_FALSE(facts.vendorRoot || facts.platformRoot || facts.trusted);
        }
    }
}

TEST(CertificateChain, RefusesForgedIssuerOfAnchorsName) {
    std::vector<CertificateSpec> specs = {CertificateSpec::leaf(), CertificateSpec::intermediate(),
                                          CertificateSpec::root()};
    for (CertificateSpec& spec : specs) {
        spec.keyIdentifiers = false;
    }
    const TestAuthority known(specs[0], specs[1], specs[2]);
    const TestAuthority impostor(specs[0], specs[1], specs[2]);
    const auto anchors = anchorsOf(known);
    EXPECT_TRUE(build({&known.leaf, &known.intermediate}, *anchors))
        << "key identifiers are a convenience";
    for (const TestIdentity* intermediate : {&impostor.intermediate, &known.intermediate}) {
        const auto forged = build({&impostor.leaf, intermediate}, *anchors);
        EXPECT_EQ(statusOf(forged), kSignatureFailed) << reasonOf(forged);
    }
}

TEST(CertificateChain, HoldsEveryCertificateToItsPlace) {
    using Spec = CertificateSpec;
    struct Case {
        const char* fault;
        void (*change)(Spec& leaf, Spec& issuer);
        std::int32_t status = kSignatureInvalid;
    };
    const TestAuthority stranger;
    for (const Case& each : {
             Case{"leaf for mail",
                  [](Spec& leaf, Spec&) { leaf.extendedKeyUsage = "emailProtection"; }},
             {"leaf for anything",
              [](Spec& leaf, Spec&) { leaf.extendedKeyUsage = "anyExtendedKeyUsage"; }},
             {"leaf of no purpose", [](Spec& leaf, Spec&) { leaf.extendedKeyUsage = ""; }},
             {"leaf for agreement",
              [](Spec& leaf, Spec&) { leaf.keyUsage = "critical,keyAgreement"; }},
             {"leaf of no usage", [](Spec& leaf, Spec&) { leaf.keyUsage = ""; }},
             {"leaf as authority",
              [](Spec& leaf, Spec&) {
                  leaf.basicConstraints = "critical,CA:true";
                  leaf.keyUsage = "critical,digitalSignature,keyCertSign";
              }},
             {"issuer without authority",
              [](Spec&, Spec& issuer) {
                  issuer.basicConstraints = "critical,CA:false";
                  issuer.keyUsage = "critical,digitalSignature";
              }},
             {"issuer that may not sign certificates",
              [](Spec&, Spec& issuer) { issuer.keyUsage = "critical,digitalSignature"; }},
             {"issuer for mail",
              [](Spec&, Spec& issuer) { issuer.extendedKeyUsage = "emailProtection"; }},
             {"issuer with a weak key", [](Spec&, Spec& issuer) { issuer.key = KeyKind::rsa1024; }},
             {"SHA-1 over the leaf", [](Spec& leaf, Spec&) { leaf.digest = EVP_sha1(); }},
             {"unknown beside a critical marker",
              [](Spec& leaf, Spec&) {
                  leaf.extensions = {{std::string(kDistributionMarker), true}, {"1.2.3.4", true}};
              }},
             {"unknown critical extension of the issuer",
              [](Spec&, Spec& issuer) { issuer.extensions.push_back({"1.2.3.4", true}); }},
             {"unknown extension that is not critical, and critical markers",
              [](Spec& leaf, Spec& issuer) {
                  leaf.extensions = {{std::string(kStoreMarker), true}, {"1.2.3.4", false}};
                  issuer.extensions.front().critical = true;
              },
              kSuccess},
         }) {
        Spec leaf = Spec::leaf();
        Spec issuer = Spec::intermediate();
        each.change(leaf, issuer);
        const TestAuthority made(leaf, issuer);
        for (const TestAuthority* anchor :
             std::initializer_list<const TestAuthority*>{&made, &stranger}) {
            const auto chain = build({&made.leaf, &made.intermediate}, *anchorsOf(*anchor));
            EXPECT_EQ(statusOf(chain), each.status)
                << each.fault << (anchor == &made ? ": " : " below an unknown root: ")
                << reasonOf(chain);
        }
    }
}

TEST(CertificateChain, BoundsDepth) {
    const TestAuthority& made = authority();
    CertificateSpec spec = CertificateSpec::intermediate();
    spec.basicConstraints = "critical,CA:true";
    std::vector<TestIdentity> issuers;
    issuers.push_back(made.root.issue(spec));
    while (issuers.size() < 5) {
        spec.commonName += "+";
        issuers.push_back(issuers.back().issue(spec));
    }
    for (const std::size_t count : {4U, 5U}) {
        const TestIdentity leaf = issuers[count - 1].issue(CertificateSpec::leaf());
        std::vector<const TestIdentity*> all = {&leaf};
        for (std::size_t index = 0; index < count; ++index) {
            all.push_back(&issuers[index]);
        }
        EXPECT_EQ(statusOf(build(all, *anchorsOf(made))),
                  count == 4 ? kSuccess : kSignatureInvalid);
    }
}

TEST(CertificateChain, RefusesCertificatesBesideChain) {
    const TestAuthority other;
    const auto chain =
        build({&authority().leaf, &authority().intermediate, &other.root}, *anchorsOf(authority()));
    EXPECT_EQ(statusOf(chain), kSignatureInvalid);
    EXPECT_THAT(reasonOf(chain), testing::HasSubstr("no part of the chain"));
}

TEST(CertificateChain, TellsWhatRequirementsAskAbout) {
    CertificateSpec spec = CertificateSpec::leaf();
    spec.units = {"one", "Zwei \xC3\xBC"};
    spec.extensions = {{"1.2.840.113635.100.6.1.33", false,
                        "DER:180f32303130303130313030303030305a"}, // 2010-01-01 00:00:00
                       {"1.2.3.4", false, "DER:180f32303130303130313030303030305aff"},
                       {"2.5.29.32", true, "DER:300d300b06092a864886f763640501"}};
    const TestAuthority made(spec);
    const auto chain = build({&made.leaf, &made.intermediate}, *anchorsOf(made));
    ASSERT_TRUE(chain) << reasonOf(chain);
    const CertificateFacts& leaf = chain->certificates.front();
    EXPECT_THAT(leaf.subject, ElementsAre(Pair("CN", "Test Signer"), Pair("OU", "one"),
                                          Pair("OU", "Zwei \xC3\xBC")));
    EXPECT_THAT(leaf.timestamps,
                ElementsAre(Pair("1.2.840.113635.100.6.1.33", Date{283'996'800.0})));
    EXPECT_THAT(leaf.policyOIDs, ElementsAre("1.2.840.113635.100.5.1"));
}

} // namespace
} // namespace qv::test
