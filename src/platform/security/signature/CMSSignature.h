#pragma once

#include "platform/security/signature/OpenSSLHandles.h"
#include "platform/security/signature/SignatureFailure.h"

#include <string_view>
#include <vector>

namespace qv {

/// A signature that has been found mathematically good: the key of the first certificate made it
/// over the content. Nothing is said yet about who that is.
struct CMSSignature {
    std::vector<X509Handle> certificates; ///< all that it carries; the signer's first

    /// Failures: kSignatureInvalid when `der` is not exactly one signature of the accepted shape
    /// (CMSEnvelope.h) or the signer's key is of a refused kind, kSignatureFailed when it is not a
    /// signature over `content`.
    static tl::expected<CMSSignature, SignatureFailure> verify(std::string_view content,
                                                               std::string_view der);
};

} // namespace qv
