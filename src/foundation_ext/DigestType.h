#pragma once

#include <string_view>

namespace qv {

/// The name of a digest, in any case; other names than these are passed on to the platform, which
/// knows MD5, RIPEMD160, SHA1, SHA224 to SHA512, SHA3-224 to SHA3-512, BLAKE2s256, BLAKE2b512, SM3.
using DigestType = std::string_view;

inline constexpr DigestType kSecDigestMD5 = "MD5";
inline constexpr DigestType kSecDigestSHA1 = "SHA1";

} // namespace qv
