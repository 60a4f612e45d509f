#pragma once

#include "platform/security/CodeFacts.h"
#include "platform/security/CodeSigningStatus.h"

#include <chrono>
#include <cstdint>
#include <string>

namespace qv {

class TrustAnchors;
class DigestCache;

/// How a program's signature is judged.
struct Examination {
    const TrustAnchors& anchors;
    DigestCache* digestCache = nullptr; ///< none: every examination hashes
    std::chrono::steady_clock::time_point deadline = std::chrono::steady_clock::time_point::max();
};

/// The signature of a program on disk, read and judged once. An object that exists is complete:
/// what failed is told by `status`, never by a missing object.
class StaticCode {
public:
    /// Reads the program behind a descriptor that is open for reading; its offset is not used. The
    /// caller has made sure that it is a regular file of a local file system.
    static StaticCode examine(int fd, const Examination& examination);

    /// 0 when the signature is good; else the first thing found wrong (codesign_status).
    [[nodiscard]] std::int32_t status() const noexcept { return status_; }
    /// What was found wrong, in words with the place; empty when nothing was.
    [[nodiscard]] const std::string& reason() const noexcept { return reason_; }
    /// A trailer is present, whatever it is worth.
    [[nodiscard]] bool hasTrailer() const noexcept { return hasTrailer_; }
    /// The CMS signature over the code directory is mathematically good.
    [[nodiscard]] bool signatureIntact() const noexcept { return signatureIntact_; }
    /// The covered range has the digest that the code directory names.
    [[nodiscard]] bool digestMatches() const noexcept { return digestMatches_; }
    /// `flags` of the code directory (code_flags); 0 unless the signature is intact.
    [[nodiscard]] std::uint32_t directoryFlags() const noexcept { return directoryFlags_; }
    /// The debuggable entitlement, in a directory whose signature is intact.
    [[nodiscard]] bool getTaskAllow() const noexcept { return getTaskAllow_; }
    /// Empty fields unless the signature is intact.
    [[nodiscard]] const CodeFacts& facts() const noexcept { return facts_; }

private:
    friend class StaticCodeExaminer;
    StaticCode() = default;
    std::int32_t status_ = codesign_status::kInternalError;
    std::string reason_;
    bool hasTrailer_ = false;
    bool signatureIntact_ = false;
    bool digestMatches_ = false;
    std::uint32_t directoryFlags_ = 0;
    bool getTaskAllow_ = false;
    CodeFacts facts_;
};

} // namespace qv
