#include "SignatureFixture.h"

#include "platform/foundation/os/Descriptor.h"

#include <fcntl.h>
#include <stdexcept>
#include <unistd.h>

namespace qv::test {

std::string cmsOver(std::string_view content, const CMSRecipe& recipe) {
    const BIOHandle source = bioReading(content);
    const unsigned place = recipe.carriesContent ? 0 : CMS_DETACHED;
    const unsigned flags = CMS_BINARY | CMS_NOSMIMECAP | place | recipe.flags;
    const CMSHandle cms(CMS_sign(nullptr, nullptr, nullptr, source.get(), flags | CMS_PARTIAL));
    bool fine = cms != nullptr;
    for (const TestIdentity* signer : recipe.signers) {
        CMS_SignerInfo* info =
            CMS_add1_signer(cms.get(), signer->certificate(), signer->key(), recipe.digest, flags);
        fine = fine && info != nullptr &&
               (!recipe.hasUnsignedAttribute ||
                CMS_unsigned_add1_attr_by_txt(info, "1.2.3.4", V_ASN1_OCTET_STRING, "x", 1) == 1);
    }
    for (const TestIdentity* other : recipe.others) {
        fine = fine && CMS_add1_cert(cms.get(), other->certificate()) == 1;
    }
    if (recipe.hasRevocationList) {
        const std::unique_ptr<X509_CRL, Releaser<X509_CRL_free>> list(X509_CRL_new());
        const std::unique_ptr<ASN1_TIME, Releaser<ASN1_TIME_free>> now(X509_gmtime_adj(nullptr, 0));
        const TestIdentity& issuer = authority().root;
        X509_CRL_set_issuer_name(list.get(), X509_get_subject_name(issuer.certificate()));
        X509_CRL_set1_lastUpdate(list.get(), now.get());
        fine = fine && X509_CRL_sign(list.get(), issuer.key(), EVP_sha256()) > 0 &&
               CMS_add1_crl(cms.get(), list.get()) == 1;
    }
    if (!fine || CMS_final(cms.get(), source.get(), nullptr, flags) != 1) {
        throw std::runtime_error("no CMS: " + openSSLComplaint());
    }
    return derOf(i2d_CMS_ContentInfo, cms.get());
}

CodeDirectory directoryFor(std::string_view program) {
    CodeDirectory directory;
    directory.identifier = "com.larkwen.QVCatalogHelper";
    directory.team = kTeam;
    directory.flags = code_flags::kHard | code_flags::kKill;
    directory.digest = sha256(program);
    directory.coveredLength = program.size();
    return directory;
}

SignedProgram::SignedProgram(const TestAuthority& authority)
    : request_(authority.requestIn(folder_ / "identity")), anchors_(anchorFolder(), ::geteuid()) {
    copySmallProgram(path());
    authority.anchorIn(anchorFolder());
}

StaticCode SignedProgram::examinedUnder(const TrustAnchors& anchors,
                                        std::chrono::steady_clock::time_point deadline) const {
    const Descriptor file(::open(path().c_str(), O_RDONLY | O_CLOEXEC));
    return StaticCode::examine(file.get(), {.anchors = *anchors.current(), .deadline = deadline});
}

} // namespace qv::test
