#pragma once

#include "foundation_ext/DigestType.h"
#include "platform/foundation/values/Error.h"
#include "platform/foundation/values/Value.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace qv {

class Transform;

/// Digests, signatures and ciphers of blocks of bytes; the first parameter is the block. Digests
/// are fingerprints here, and AES is without salt, vector and authentication: none of it protects
/// against somebody who means harm. Every error parameter may be null. All may be called from
/// several threads.
namespace QVTransforms {

/// The transform's result for the bytes. None without a transform, or when it fails: then `error`
/// says why; otherwise it is cleared.
[[nodiscard]] std::optional<Value> performTransform(std::string_view receiver,
                                                    const Transform* transform, Error* error);

/// The raw digest; none, with an error, for an unknown type. `error` is cleared otherwise.
[[nodiscard]] std::optional<std::string> computeDigestOfType(std::string_view receiver,
                                                             DigestType digestType, Error* error);
/// The digest in lower-case hexadecimal.
[[nodiscard]] std::optional<std::string>
computeDigestStringOfType(std::string_view receiver, DigestType digestType, Error* error);
/// The same of a file's bytes, which are read in pieces: however large the file, memory does not
/// grow. None, with an error of NSPOSIXErrorDomain, for a file that cannot be read or is not a
/// regular one.
[[nodiscard]] std::optional<std::string>
computeDigestStringOfFile(const std::string& path, DigestType digestType, Error* error);

[[nodiscard]] std::optional<std::string> md5Digest(std::string_view receiver);
[[nodiscard]] std::optional<std::string> sha1Digest(std::string_view receiver);
[[nodiscard]] std::optional<std::string> md5DigestData(std::string_view receiver);  ///< 16 bytes
[[nodiscard]] std::optional<std::string> sha1DigestData(std::string_view receiver); ///< 20 bytes

/// Whether the check ran; `verificationResult` tells how it went, and is false when it did not run.
/// The signature is one over the receiver's SHA-1 digest, padded by PKCS#1 v1.5 for RSA keys; the
/// certificate is X.509 in DER. `retError` is set when a step fails, and left alone otherwise.
[[nodiscard]] bool verifySignature(std::string_view receiver,
                                   std::optional<std::string_view> signature,
                                   std::optional<std::string_view> publicKeyCertData,
                                   Error* retError, bool* verificationResult);

// AES-128 in ECB mode, padded by PKCS#7: nothing but the ciphertext, whose length is the next
// multiple of 16 above that of the plaintext. None without a key, and for a ciphertext that the key
// did not make, as far as the padding tells. A short key is filled up with zeros, a long one cut.

/// `operation`: 0 encrypts, 1 decrypts; others give none.
[[nodiscard]] std::optional<std::string>
_xcryptAES128With16ByteKey(std::string_view receiver, std::optional<std::string_view> key,
                           std::uint32_t operation);
[[nodiscard]] std::optional<std::string>
encryptAES128With16ByteKey(std::string_view receiver, std::optional<std::string_view> key);
[[nodiscard]] std::optional<std::string>
decryptAES128With16ByteKey(std::string_view receiver, std::optional<std::string_view> key);
/// The key is the MD5 digest of the password's UTF-8 bytes, as it stands.
[[nodiscard]] std::optional<std::string>
encryptAES128WithPassword(std::string_view receiver, std::optional<std::string_view> password);
[[nodiscard]] std::optional<std::string>
decryptAES128WithPassword(std::string_view receiver, std::optional<std::string_view> password);

} // namespace QVTransforms
} // namespace qv
