#pragma once

#include "platform/foundation/digest/SHA256.h"
#include "platform/security/signature/SignatureFailure.h"

#include <chrono>
#include <cstdint>

namespace qv {

/// The longest part of a program that can be signed or judged: reading more takes too long.
inline constexpr std::uint64_t kLongestCoveredRange = std::uint64_t{256} << 20U;

/// The SHA-256 of the first `length` bytes of a regular file. Failures: kSignatureNotVerifiable
/// above kLongestCoveredRange, kCancelled after the deadline, kStaticCodeChanged when the file
/// changed meanwhile, kErrnoBase + errno.
[[nodiscard]] tl::expected<SHA256Digest, SignatureFailure>
digestOfCoveredRange(int fd, std::uint64_t length, std::chrono::steady_clock::time_point deadline);

} // namespace qv
