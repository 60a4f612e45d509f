#pragma once

#include "platform/security/signature/SignatureFailure.h"

#include <cstdint>
#include <string_view>
#include <vector>

namespace qv {

enum class SignerKeyType : std::uint8_t { rsa, ellipticCurve };

/// The outer shape of a signature: a ContentInfo with SignedData (RFC 5652), of which every byte
/// that the signature does not cover is pinned down here. The library's reader is generous there:
/// it looks at no version, passes over certificates and revocation data of other kinds, and takes
/// any parameters of an algorithm. Views into what was read.
struct CMSEnvelope {
    static constexpr std::size_t kMostCertificates = 6;

    std::vector<std::string_view> certificates; ///< X.509, DER, 1 to 6, no two alike
    std::string_view signerIssuer; ///< DER of the Name that names the signer's certificate
    std::string_view signerSerial; ///< DER of the INTEGER
    SignerKeyType keyType = SignerKeyType::rsa; ///< as the signature algorithm demands

    /// Accepts version 1, detached content of type id-data, one digest algorithm of SHA-256, 384 or
    /// 512, X.509 certificates only, no revocation data, one signer of version 1 named by issuer
    /// and serial number, signed attributes with content type and message digest each once, RSA
    /// (PKCS #1 v1.5) or ECDSA with the same digest, no unsigned attributes, nothing behind.
    /// Anything else: kSignatureInvalid and what it was.
    static tl::expected<CMSEnvelope, SignatureFailure> read(std::string_view der);
};

} // namespace qv
