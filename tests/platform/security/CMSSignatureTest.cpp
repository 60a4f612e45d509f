#include "platform/security/signature/CMSSignature.h"

#include "platform/security/signature/DERReader.h"

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

TEST(CMSSignature, GivesTheSignersCertificateFirst) {
    const auto signature = verified(usual());
    ASSERT_TRUE(signature) << reasonOf(signature);
    ASSERT_EQ(signature->certificates.size(), 2U);
    EXPECT_EQ(X509_cmp(signature->certificates[0].get(), authority().leaf.certificate()), 0);
    const auto other = CMSSignature::verify("other bytes", cmsOver(kContent, usual()));
    EXPECT_EQ(statusOf(other), kSignatureFailed) << "signature over something else";
}

TEST(CMSSignature, AcceptsTheKeysAndDigestsOfTheProfileOnly) {
    struct Case {
        KeyKind key;
        const EVP_MD* digest;
        std::int32_t status;
    };
    for (const Case& each :
         {Case{KeyKind::p256, EVP_sha256(), kSuccess}, Case{KeyKind::p384, EVP_sha384(), kSuccess},
          Case{KeyKind::p256, EVP_sha512(), kSuccess},
          Case{KeyKind::rsa2048, EVP_sha256(), kSuccess},
          Case{KeyKind::rsa2048, EVP_sha1(), kSignatureInvalid},
          Case{KeyKind::p256, EVP_sha224(), kSignatureInvalid},
          Case{KeyKind::p521, EVP_sha512(), kSignatureInvalid},
          Case{KeyKind::rsa1024, EVP_sha256(), kSignatureInvalid}}) {
        CertificateSpec spec = CertificateSpec::leaf();
        spec.key = each.key;
        const TestIdentity signer = authority().intermediate.issue(spec);
        const auto signature = verified({.signers = {&signer}, .digest = each.digest});
        EXPECT_EQ(statusOf(signature), each.status)
            << static_cast<int>(each.key) << " with " << EVP_MD_get0_name(each.digest) << ": "
            << reasonOf(signature);
    }
}

TEST(CMSSignature, RefusesEveryOtherShape) {
    const TestIdentity second = authority().intermediate.issue(CertificateSpec::leaf());
    std::vector<TestIdentity> many;
    many.reserve(6);
    for (int count = 0; count < 6; ++count) {
        many.push_back(authority().root.issue(CertificateSpec::intermediate()));
    }
    CMSRecipe crowded = usual();
    crowded.others = {many.data(), &many[1], &many[2], &many[3], &many[4], &many[5]};
    struct Case {
        const char* fault;
        CMSRecipe recipe;
        const char* reason;
    };
    const std::vector<Case> cases = {
        {"two signers", {.signers = {&authority().leaf, &second}}, "signers is not one"},
        {"the same signer twice",
         {.signers = {&authority().leaf, &authority().leaf},
          .others = {&authority().leaf},
          .flags = CMS_NOCERTS},
         "signers is not one"},
        {"no signed attributes",
         {.signers = {&authority().leaf}, .flags = CMS_NOATTR},
         "no signed attributes"},
        {"unsigned attributes",
         {.signers = {&authority().leaf}, .hasUnsignedAttribute = true},
         "unsigned attributes"},
        {"no certificates",
         {.signers = {&authority().leaf}, .flags = CMS_NOCERTS},
         "no certificates"},
        {"signer's certificate missing",
         {.signers = {&authority().leaf},
          .others = {&authority().intermediate},
          .flags = CMS_NOCERTS},
         "not there exactly once"},
        {"signer named by key identifier",
         {.signers = {&authority().leaf}, .flags = CMS_USE_KEYID},
         "version"},
        {"seven certificates", crowded, "more than 6"},
    };
    for (const Case& each : cases) {
        SCOPED_TRACE(each.fault);
        const auto signature = verified(each.recipe);
        EXPECT_EQ(statusOf(signature), kSignatureInvalid) << each.fault;
        EXPECT_THAT(reasonOf(signature), testing::HasSubstr(each.reason)) << each.fault;
    }
}

std::string wrapped(std::uint8_t tag, const std::string& content) {
    std::string out(1, static_cast<char>(tag));
    if (content.size() >= 0x80) { // tests need no longer ones than two bytes can say
        out += '\x82';
        out += static_cast<char>(content.size() >> 8U);
    }
    out += static_cast<char>(content.size());
    return out + content;
}

TEST(CMSSignature, RefusesZeroSigners) {
    const std::string der = cmsOver(kContent, usual());
    const auto contentInfo = DERReader(der).next().value();
    DERReader outer(contentInfo.content);
    const auto type = outer.next().value();
    const auto signedData = DERReader(outer.next().value().content).next().value();
    DERReader inner(signedData.content);
    std::string kept;
    for (int count = 0; count < 4; ++count) { // version, digests, content type, certificates
        kept += inner.next().value().whole;
    }
    kept += wrapped(der::kSet, "");
    const std::string none =
        wrapped(der::kSequence,
                std::string(type.whole) + wrapped(der::kContext0, wrapped(der::kSequence, kept)));
    const unsigned char* at = unsignedBytes(none);
    const CMSHandle cms(d2i_CMS_ContentInfo(nullptr, &at, static_cast<long>(none.size())));
    ASSERT_TRUE(cms) << "the library reads it, so it must be the verification that refuses it";
    const auto signature = CMSSignature::verify(kContent, none);
    EXPECT_EQ(statusOf(signature), kSignatureInvalid);
    EXPECT_THAT(reasonOf(signature), testing::HasSubstr("signers is not one"));
}

TEST(CMSSignature, RefusesContentWithin) {
    const BIOHandle source = bioReading(kContent);
    const CMSHandle cms(CMS_sign(authority().leaf.certificate(), authority().leaf.key(), nullptr,
                                 source.get(), CMS_BINARY));
    const auto signature = CMSSignature::verify(kContent, derOf(i2d_CMS_ContentInfo, cms.get()));
    EXPECT_THAT(reasonOf(signature), testing::HasSubstr("detached"));
}

TEST(CMSSignature, RefusesRevocationDataWithin) {
    const BIOHandle source = bioReading(kContent);
    const CMSHandle cms(CMS_sign(authority().leaf.certificate(), authority().leaf.key(), nullptr,
                                 source.get(), CMS_BINARY | CMS_DETACHED));
    const std::unique_ptr<X509_CRL, Releaser<X509_CRL_free>> list(X509_CRL_new());
    const std::unique_ptr<ASN1_TIME, Releaser<ASN1_TIME_free>> now(X509_gmtime_adj(nullptr, 0));
    X509_CRL_set_issuer_name(list.get(), X509_get_subject_name(authority().root.certificate()));
    X509_CRL_set1_lastUpdate(list.get(), now.get());
    ASSERT_GT(X509_CRL_sign(list.get(), authority().root.key(), EVP_sha256()), 0);
    ASSERT_EQ(CMS_add1_crl(cms.get(), list.get()), 1);
    const auto signature = CMSSignature::verify(kContent, derOf(i2d_CMS_ContentInfo, cms.get()));
    EXPECT_EQ(statusOf(signature), kSignatureInvalid);
    EXPECT_THAT(reasonOf(signature), testing::HasSubstr("follows the certificates"));
}

TEST(CMSSignature, TakesExactlyItsBytes) {
    const std::string der = cmsOver(kContent, usual());
    EXPECT_EQ(statusOf(CMSSignature::verify(kContent, der + '\0')), kSignatureInvalid);
    EXPECT_EQ(statusOf(CMSSignature::verify(kContent, "")), kSignatureInvalid);
    for (std::size_t length = 1; length < der.size(); length += 7) {
        EXPECT_EQ(statusOf(CMSSignature::verify(kContent, der.substr(0, length))),
                  kSignatureInvalid)
            << length;
    }
    // Indefinite length: another encoding of the same, outside what is signed.
    const std::string indefinite = "\x30\x80" + der.substr(4) + std::string(2, '\0');
    EXPECT_EQ(statusOf(CMSSignature::verify(kContent, indefinite)), kSignatureInvalid);
}

TEST(CMSSignature, RefusesACertificateThatOnlyBearsTheSignersName) {
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
