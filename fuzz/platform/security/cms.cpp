// Arbitrary bytes as a signature over fixed content. Certificates are judged even when no key
// signed anything, because the fuzzer has none.

#include "platform/security/signature/CMSEnvelope.h"
#include "platform/security/signature/CMSSignature.h"
#include "platform/security/signature/CertificateChain.h"
#include "platform/security/signature/CertificateReader.h"
#include "platform/security/signature/TrustAnchors.h"

#include <cstdlib>

namespace {

constexpr std::size_t kLongest = 65536;
constexpr std::string_view kContent = "the bytes of a code directory";

void require(bool fact) {
    if (!fact) {
        std::abort();
    }
}

void judgeCertificates(const qv::CMSEnvelope& envelope) {
    static const auto kNobody = qv::TrustAnchors().current();
    std::vector<qv::X509Handle> certificates;
    for (const std::string_view der : envelope.certificates) {
        if (qv::X509Handle certificate = qv::certificateWithDER(der)) {
            certificates.push_back(std::move(certificate));
        }
    }
    if (certificates.empty()) {
        return;
    }
    const auto chain = qv::CertificateChain::build(certificates, *kNobody, qv::TimeCheck::none);
    if (!chain) {
        require(chain.error().status != 0 && !chain.error().reason.empty());
        return;
    }
    for (const qv::CertificateFacts& certificate : chain->certificates) {
        require(!certificate.vendorRoot && !certificate.platformRoot && !certificate.trusted);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
    if (size > kLongest) {
        return 0;
    }
    const std::string_view bytes = qv::bytesView(data, size);
    const auto envelope = qv::CMSEnvelope::read(bytes);
    if (envelope) {
        judgeCertificates(*envelope);
    }
    const auto signature = qv::CMSSignature::verify(kContent, bytes);
    require(signature ? envelope && !signature->certificates.empty()
                      : signature.error().status != 0 && !signature.error().reason.empty());
    return 0;
}
