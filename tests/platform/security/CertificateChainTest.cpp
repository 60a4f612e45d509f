#include "platform/security/signature/CertificateChain.h"

#include <fmt/core.h>
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

// Checks the chain below an anchor and below an unknown root.
void expectStatus(std::int32_t status, const CertificateSpec& leaf, const CertificateSpec& issuer,
                  std::string_view fault) {
    const TestAuthority made(leaf, issuer);
    for (const TestAuthority* anchor : {&std::as_const(made), &authority()}) {
        const auto chain = build({&made.leaf, &made.intermediate}, *anchorsOf(*anchor));
        EXPECT_EQ(statusOf(chain), status) << fault << ": " << reasonOf(chain);
    }
}

TEST(CertificateChain, HoldsEveryCertificateToItsPlace) {
    using Spec = CertificateSpec;
    const Spec leaf = Spec::leaf();
    const Spec issuer = Spec::intermediate();
    for (const auto& [field, value] : {std::pair{&Spec::extendedKeyUsage, "emailProtection"},
                                       {&Spec::extendedKeyUsage, "anyExtendedKeyUsage"},
                                       {&Spec::extendedKeyUsage, ""},
                                       {&Spec::keyUsage, "critical,keyAgreement"},
                                       {&Spec::keyUsage, ""}}) {
        Spec changed = leaf;
        changed.*field = value;
        expectStatus(kSignatureInvalid, changed, issuer, fmt::format("leaf with \"{}\"", value));
    }
    for (const auto& [field, value] : {std::pair{&Spec::keyUsage, "critical,digitalSignature"},
                                       {&Spec::extendedKeyUsage, "emailProtection"},
                                       {&Spec::basicConstraints, "critical,CA:false"}}) {
        Spec changed = issuer;
        changed.*field = value;
        expectStatus(kSignatureInvalid, leaf, changed, fmt::format("issuer with \"{}\"", value));
    }
    struct Case {
        const char* fault;
        void (*change)(Spec& leaf, Spec& issuer);
        std::int32_t status = kSignatureInvalid;
    };
    for (const Case& each : {
             Case{"leaf as authority",
                  [](Spec& signer, Spec&) {
                      signer.basicConstraints = "critical,CA:true";
                      signer.keyUsage = "critical,digitalSignature,keyCertSign";
                  }},
             {"issuer with a weak key", [](Spec&, Spec& above) { above.key = KeyKind::rsa1024; }},
             {"SHA-1 over the leaf", [](Spec& signer, Spec&) { signer.digest = EVP_sha1(); }},
             {"unknown beside a critical marker",
              [](Spec& signer, Spec&) {
                  signer.extensions = {{std::string(kDistributionMarker), true}, {"1.2.3.4", true}};
              }},
             {"unknown critical extension of the issuer",
              [](Spec&, Spec& above) { above.extensions.push_back({"1.2.3.4", true}); }},
             {"unknown extension that is not critical, and critical markers",
              [](Spec& signer, Spec& above) {
                  signer.extensions = {{std::string(kStoreMarker), true}, {"1.2.3.4", false}};
                  above.extensions.front().critical = true;
              },
              kSuccess},
         }) {
        Spec changedLeaf = leaf;
        Spec changedIssuer = issuer;
        each.change(changedLeaf, changedIssuer);
        expectStatus(each.status, changedLeaf, changedIssuer, each.fault);
    }
}

TEST(CertificateChain, RefusesCertificatesBesideChain) {
    const TestAuthority other;
    const auto chain =
        build({&authority().leaf, &authority().intermediate, &other.root}, *anchorsOf(authority()));
    EXPECT_EQ(statusOf(chain), kSignatureInvalid);
    EXPECT_THAT(reasonOf(chain), testing::HasSubstr("not part of the chain"));
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
