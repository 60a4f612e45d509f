#pragma once

#include "platform/security/signature/OpenSSLHandles.h"
#include "platform/security/signature/SignatureFailure.h"

#include <string>
#include <string_view>
#include <vector>

namespace qv {

/// A certificate with its private key, and the certificates above it.
struct SigningIdentity {
    X509Handle certificate;
    KeyHandle key;
    std::vector<X509Handle> intermediates;

    /// Reads PEM files. Failures: kErrnoBase + errno; kInvalidAttributeValues for a file that is
    /// not a certificate or key, a key that others than its owner may read, and a key that is not
    /// the certificate's.
    static tl::expected<SigningIdentity, SignatureFailure>
    load(const std::string& certificatePath, const std::string& keyPath,
         const std::vector<std::string>& intermediatePaths);

    /// A detached CMS signature over `content`, DER, of the shape that CMSSignature accepts.
    [[nodiscard]] tl::expected<std::string, SignatureFailure> sign(std::string_view content) const;
};

} // namespace qv
