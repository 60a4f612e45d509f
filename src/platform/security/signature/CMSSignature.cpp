#include "platform/security/signature/CMSSignature.h"

#include "platform/security/requirement/CodeSigningStatus.h"
#include "platform/security/signature/CMSEnvelope.h"
#include "platform/security/signature/CertificateReader.h"
#include "platform/security/signature/CertificateRules.h"

#include <fmt/core.h>

#include <algorithm>

namespace qv {

namespace {

// Compares byte for byte: names that merely compare equal would leave bytes that no signature
// protects.
bool isNamedBy(const CMSEnvelope& envelope, X509& certificate) {
    return derOf(i2d_X509_NAME, X509_get_issuer_name(&certificate)) == envelope.signerIssuer &&
           derOf(i2d_ASN1_INTEGER, X509_get0_serialNumber(&certificate)) == envelope.signerSerial;
}

// The certificates of an envelope, the signer's moved to the front.
tl::expected<std::vector<X509Handle>, SignatureFailure>
certificatesOf(const CMSEnvelope& envelope) {
    std::vector<X509Handle> certificates;
    std::size_t signers = 0;
    for (const std::string_view der : envelope.certificates) {
        X509Handle certificate = certificateWithDER(der);
        if (!certificate) {
            return invalidSignature("signature: a certificate that cannot be read");
        }
        certificates.push_back(std::move(certificate));
        if (isNamedBy(envelope, *certificates.back())) {
            ++signers;
            std::swap(certificates.front(), certificates.back());
        }
    }
    if (signers != 1) {
        return invalidSignature("signature: the signer's certificate is not there exactly once");
    }
    return certificates;
}

std::string signerKeyFault(const CMSEnvelope& envelope, const X509& signer) {
    if (std::string fault = keyFault(signer); !fault.empty()) {
        return fault;
    }
    const bool isRSA = EVP_PKEY_is_a(X509_get0_pubkey(&signer), "RSA") == 1;
    return isRSA == (envelope.keyType == SignerKeyType::rsa)
               ? std::string()
               : "has a key of another kind than the signature";
}

} // namespace

tl::expected<CMSSignature, SignatureFailure> CMSSignature::verify(std::string_view content,
                                                                  std::string_view der) {
    const auto envelope = CMSEnvelope::read(der);
    if (!envelope) {
        return tl::unexpected(envelope.error());
    }
    auto certificates = certificatesOf(*envelope);
    if (!certificates) {
        return tl::unexpected(certificates.error());
    }
    const X509& signer = *certificates->front();
    if (const std::string fault = signerKeyFault(*envelope, signer); !fault.empty()) {
        return invalidSignature(fmt::format("{} {}", shownName(signer), fault));
    }
    const unsigned char* at = unsignedBytes(der);
    const CMSHandle cms(d2i_CMS_ContentInfo(nullptr, &at, static_cast<long>(der.size())));
    if (!cms || at != unsignedBytes(der) + der.size()) {
        return invalidSignature(fmt::format("signature cannot be decoded: {}", openSSLComplaint()));
    }
    const BIOHandle source = bioReading(content);
    // The signer is judged elsewhere, by rules that the library does not have.
    constexpr unsigned kFlags = CMS_BINARY | CMS_NO_SIGNER_CERT_VERIFY;
    if (!source || CMS_verify(cms.get(), nullptr, nullptr, source.get(), nullptr, kFlags) != 1) {
        return signatureFailure(
            codesign_status::kSignatureFailed,
            fmt::format("not a signature over the code directory: {}", openSSLComplaint()));
    }
    // The library looked the signer up by itself: it must have found the one that was judged.
    const STACK_OF(CMS_SignerInfo)* signers = CMS_get0_SignerInfos(cms.get());
    X509* used = nullptr;
    CMS_SignerInfo_get0_algs(sk_CMS_SignerInfo_value(signers, 0), nullptr, &used, nullptr, nullptr);
    if (sk_CMS_SignerInfo_num(signers) != 1 || used == nullptr || X509_cmp(used, &signer) != 0) {
        return invalidSignature("signature: the signer's certificate is ambiguous");
    }
    return CMSSignature{std::move(*certificates)};
}

} // namespace qv
