#pragma once

#include "platform/security/requirement/CodeFacts.h"
#include "platform/security/signature/OpenSSLHandles.h"
#include "platform/security/signature/SignatureFailure.h"
#include "platform/security/signature/TrustAnchors.h"

#include <cstdint>
#include <vector>

namespace qv {

enum class TimeCheck : std::uint8_t { none, now };

/// The certificates from a signer up to where trust begins, or up to where they are known.
struct CertificateChain {
    /// The most intermediate certificates between the signer's and the anchor.
    static constexpr int kDeepest = 4;

    std::vector<CertificateFacts> certificates; ///< leaf first, anchor last

    /// Builds and checks the chain of a verified signature's certificates (the signer's first).
    /// Every one of them must be part of it. A chain that ends at none of the anchors is not a
    /// failure: it is checked by the same rules as far as its certificates go, and none of them is
    /// marked as a root or trusted, so that a requirement for an anchor fails later.
    ///
    /// Failures: kSignatureInvalid for a certificate that must not be where it is, kSignatureFailed
    /// for one that its issuer did not sign, kCertificateExpired when times are checked,
    /// kCertificateRevoked.
    static tl::expected<CertificateChain, SignatureFailure>
    build(const std::vector<X509Handle>& certificates, const AnchorSet& anchors, TimeCheck times);
};

} // namespace qv
