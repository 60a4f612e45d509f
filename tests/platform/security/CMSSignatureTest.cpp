#include "platform/security/signature/CMSSignature.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "SignatureFixture.h"

namespace qv::test {
namespace {

using namespace codesign_status;

constexpr std::string_view kContent = "the bytes of a code directory";

CMSRecipe usual() {
    return {.signers = {&authority().leaf}, .others = {&authority().intermediate}};
}

tl::expected<CMSSignature, SignatureFailure> verified(const CMSRecipe& recipe) {
    return CMSSignature::verify(kContent, cmsOver(kContent, recipe));
}

TEST(CMSSignature, GivesSignersCertificateFirst) {
    const auto signature = verified(usual());
    ASSERT_TRUE(signature) << reasonOf(signature);
    ASSERT_EQ(signature->certificates.size(), 2U);
    EXPECT_EQ(X509_cmp(signature->certificates[0].get(), authority().leaf.certificate()), 0);
    const auto other = CMSSignature::verify("other bytes", cmsOver(kContent, usual()));
    EXPECT_EQ(statusOf(other), kSignatureFailed) << "signature over something else";
}

TEST(CMSSignature, AcceptsKeysAndDigestsOfProfile) {
    struct Case {
        KeyKind key;
        const EVP_MD* digest;
        std::int32_t status;
    };
    for (const Case& each : {Case{KeyKind::p256, EVP_sha256(), kSuccess},
                             {KeyKind::p384, EVP_sha384(), kSuccess},
                             {KeyKind::p256, EVP_sha512(), kSuccess},
                             {KeyKind::rsa2048, EVP_sha256(), kSuccess},
                             {KeyKind::rsa2048, EVP_sha1(), kSignatureInvalid},
                             {KeyKind::p521, EVP_sha512(), kSignatureInvalid},
                             {KeyKind::rsa1024, EVP_sha256(), kSignatureInvalid}}) {
        CertificateSpec spec = CertificateSpec::leaf();
        spec.key = each.key;
        const TestIdentity signer = authority().intermediate.issue(spec);
        const auto signature = verified({.signers = {&signer}, .digest = each.digest});
        EXPECT_EQ(statusOf(signature), each.status)
            << static_cast<int>(each.key) << " with " << EVP_MD_get0_name(each.digest);
    }
}

TEST(CMSSignature, RefusesEveryOtherShape) {
    const TestIdentity* leaf = &authority().leaf;
    const TestIdentity second = authority().intermediate.issue(CertificateSpec::leaf());
    std::vector<TestIdentity> many;
    for (int count = 0; count < 6; ++count) {
        many.push_back(authority().root.issue(CertificateSpec::intermediate()));
    }
    struct Case {
        const char* fault;
        CMSRecipe recipe;
        const char* reason;
    };
    const std::vector<Case> cases = {
        {"two signers", {.signers = {leaf, &second}}, "signers is not one"},
        {"same signer twice",
         {.signers = {leaf, leaf}, .others = {leaf}, .flags = CMS_NOCERTS},
         "signers is not one"},
        {"no signed attributes", {.signers = {leaf}, .flags = CMS_NOATTR}, "no signed attributes"},
        {"unsigned attributes",
         {.signers = {leaf}, .hasUnsignedAttribute = true},
         "unsigned attributes"},
        {"no certificates", {.signers = {leaf}, .flags = CMS_NOCERTS}, "no certificates"},
        {"signer's certificate missing",
         {.signers = {leaf}, .others = {&authority().intermediate}, .flags = CMS_NOCERTS},
         "not there exactly once"},
        {"named by key identifier", {.signers = {leaf}, .flags = CMS_USE_KEYID}, "version"},
        {"seven certificates",
         {.signers = {leaf},
          .others = {many.data(), &many[1], &many[2], &many[3], &many[4], &many[5]}},
         "more than 6"},
        {"content within", {.signers = {leaf}, .carriesContent = true}, "detached"},
        {"revocation list within",
         {.signers = {leaf}, .hasRevocationList = true},
         "follows the certificates"},
    };
    for (const Case& each : cases) {
        const auto signature = verified(each.recipe);
        EXPECT_EQ(statusOf(signature), kSignatureInvalid) << each.fault;
        EXPECT_THAT(reasonOf(signature), testing::HasSubstr(each.reason)) << each.fault;
    }
}

TEST(CMSSignature, RefusesZeroSigners) {
    const std::string der = cmsOver(kContent, usual());
    const unsigned char* at = unsignedBytes(der);
    const CMSHandle cms(d2i_CMS_ContentInfo(nullptr, &at, static_cast<long>(der.size())));
    STACK_OF(CMS_SignerInfo)* signers = CMS_get0_SignerInfos(cms.get());
    CMS_SignerInfo* signer = sk_CMS_SignerInfo_pop(signers);
    const std::string none = derOf(i2d_CMS_ContentInfo, cms.get());
    sk_CMS_SignerInfo_push(signers, signer); // the library frees it with the others
    EXPECT_THAT(reasonOf(CMSSignature::verify(kContent, none)),
                testing::HasSubstr("signers is not one"));
}

TEST(CMSSignature, TakesExactlyItsBytes) {
    const std::string der = cmsOver(kContent, usual());
    // The indefinite length is another encoding of the same, outside the signed bytes.
    std::vector<std::string> damaged = {der + '\0',
                                        "\x30\x80" + der.substr(4) + std::string(2, '\0')};
    for (std::size_t length = 0; length < der.size(); length += 7) {
        damaged.push_back(der.substr(0, length));
    }
    for (const std::string& bytes : damaged) {
        EXPECT_EQ(statusOf(CMSSignature::verify(kContent, bytes)), kSignatureInvalid)
            << bytes.size() << " bytes instead of " << der.size();
    }
}

TEST(CMSSignature, RefusesAnotherCertificateOfSignersName) {
    CertificateSpec spec = CertificateSpec::leaf();
    spec.serialNumber = 4711;
    const TestIdentity signer = authority().intermediate.issue(spec);
    const TestIdentity impostor = authority().intermediate.issue(spec);
    const auto other =
        verified({.signers = {&impostor}, .others = {&signer}, .flags = CMS_NOCERTS});
    EXPECT_EQ(statusOf(other), kSignatureFailed) << reasonOf(other);
    const auto both = verified({.signers = {&impostor}, .others = {&signer}});
    EXPECT_EQ(statusOf(both), kSignatureInvalid) << "ambiguous: which of the two signed?";
}

} // namespace
} // namespace qv::test
