#include "platform/security/signature/CoveredRange.h"

#include "platform/foundation/os/FileBytes.h"
#include "platform/foundation/os/FileKey.h"
#include "platform/security/requirement/CodeSigningStatus.h"

#include <fmt/core.h>

#include <algorithm>
#include <span>
#include <vector>

namespace qv {

namespace {

constexpr std::size_t kPiece = std::size_t{1} << 17U; // small enough to stay in the nearer caches

tl::expected<SHA256Digest, SignatureFailure> hash(int fd, std::uint64_t length,
                                                  std::chrono::steady_clock::time_point deadline) {
    SHA256 running;
    std::vector<char> piece(static_cast<std::size_t>(std::min<std::uint64_t>(length, kPiece)));
    for (std::uint64_t at = 0; at < length;) {
        if (std::chrono::steady_clock::now() >= deadline) {
            return signatureFailure(codesign_status::kCancelled,
                                    "no time left to read the program");
        }
        const std::span<char> part = std::span(piece).first(
            static_cast<std::size_t>(std::min<std::uint64_t>(piece.size(), length - at)));
        if (const int error = readExactly(fd, at, part); error != 0) {
            return unreadableProgram(error);
        }
        running.update({part.data(), part.size()});
        at += part.size();
    }
    return running.finish();
}

} // namespace

tl::expected<SHA256Digest, SignatureFailure>
digestOfCoveredRange(int fd, std::uint64_t length, std::chrono::steady_clock::time_point deadline) {
    if (length > kLongestCoveredRange) {
        return signatureFailure(codesign_status::kSignatureNotVerifiable,
                                fmt::format("{} bytes are signed; at most {} are looked at", length,
                                            kLongestCoveredRange));
    }
    const auto before = FileKey::of(fd);
    if (!before) {
        return unreadableProgram(before.error());
    }
    auto digest = hash(fd, length, deadline);
    if (!digest) {
        return digest;
    }
    const auto after = FileKey::of(fd);
    if (!after) {
        return unreadableProgram(after.error());
    }
    if (*after != *before) {
        return signatureFailure(codesign_status::kStaticCodeChanged,
                                "the program changed while it was read");
    }
    return digest;
}

} // namespace qv
