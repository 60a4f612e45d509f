#pragma once

#include "platform/security/requirement/CodeFacts.h"
#include "platform/security/signature/OpenSSLHandles.h"

#include <string>

namespace qv {

// Rules for a certificate of a code signature, beyond those that the library checks. Each function
// gives what is wrong, in words; empty when nothing is.

/// The key: RSA of 2048 to 8192 bits, or on one of the named curves P-256 and P-384.
[[nodiscard]] std::string keyFault(const X509& certificate);
/// Every critical extension is one that is checked, or one of the marker extensions that
/// requirements ask about and that need no check.
[[nodiscard]] std::string criticalExtensionFault(const X509& certificate);
/// A signer: no authority, for digital signatures, for code signing.
[[nodiscard]] std::string signerFault(X509& certificate);
/// An issuer: an authority that may sign certificates, and whose purposes, when it names any,
/// include code signing.
[[nodiscard]] std::string issuerFault(X509& certificate);

/// Certificates that mark the distribution of a program carry one of these extensions.
[[nodiscard]] bool hasDistributionMarker(const CertificateFacts& certificate);

/// The common name for a reason: escaped, in quotes; "certificate without a name" for none.
[[nodiscard]] std::string shownName(const X509& certificate);

} // namespace qv
