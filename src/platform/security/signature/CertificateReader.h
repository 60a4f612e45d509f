#pragma once

#include "platform/foundation/digest/SHA256.h"
#include "platform/security/requirement/CodeFacts.h"
#include "platform/security/signature/OpenSSLHandles.h"

#include <tl/expected.hpp>

#include <string>
#include <string_view>
#include <vector>

namespace qv {

/// A certificate whose distinguished encoding is exactly `der`; none otherwise.
[[nodiscard]] X509Handle certificateWithDER(std::string_view der);

/// The certificates of a text in PEM, at least one. The error says what is wrong: blocks of other
/// kinds (keys have no business beside certificates), damaged blocks, none at all.
[[nodiscard]] tl::expected<std::vector<X509Handle>, std::string>
certificatesWithPEM(std::string_view text);

/// The facts that requirements ask about a certificate, without trust and revocation. The error
/// says what cannot be read.
[[nodiscard]] tl::expected<CertificateFacts, std::string> certificateFacts(const X509& certificate);

[[nodiscard]] SHA256Digest certificateDigest(const X509& certificate); ///< of the DER form
[[nodiscard]] std::string commonName(const X509& certificate);         ///< UTF-8; empty for none
[[nodiscard]] std::string dottedOID(const ASN1_OBJECT* object);

} // namespace qv
