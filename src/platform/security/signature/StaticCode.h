#pragma once

#include "platform/foundation/values/Error.h"
#include "platform/security/requirement/CodeFacts.h"
#include "platform/security/requirement/CodeSigningStatus.h"

#include <tl/expected.hpp>

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace qv {

class AnchorSet;

/// The conditions under which a program's signature is judged.
struct Examination {
    const AnchorSet& anchors;
    std::chrono::steady_clock::time_point deadline = std::chrono::steady_clock::time_point::max();
};

/// The signature of a program on disk, read and judged once. An object that exists is complete:
/// what failed is told by `status`, never by a missing object.
class StaticCode {
public:
    /// Reads the program behind a descriptor that is open for reading; its offset is not used. The
    /// caller has made sure that it is a regular file of a local file system.
    static StaticCode examine(int fd, const Examination& examination);
    /// The same where there is no signature to judge, nor any other foreign byte to look at than
    /// the last few of the file; none where there is one.
    static std::optional<StaticCode> examineUnsigned(int fd);
    /// A program that could not even be opened.
    static StaticCode unreadable(int errorNumber);

    /// The encoding for another process, as a property list; reads back as an equal object.
    [[nodiscard]] Value encoded() const;
    /// The error says what is missing or of the wrong kind.
    static tl::expected<StaticCode, Error> decoded(const Value& encoding);

    /// The status is 0 when the signature is good; else the first thing found wrong
    /// (codesign_status).
    [[nodiscard]] std::int32_t status() const noexcept { return status_; }
    /// The fault, in words with the place; empty when nothing was.
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
    /// The signature asks for the terms of its certificates to count.
    [[nodiscard]] bool checksExpiry() const noexcept {
        return (directoryFlags_ & code_flags::kCheckExpiration) != 0;
    }
    /// Whether a good judgement still holds, if bytes and anchors are the same.
    [[nodiscard]] bool holdsAt(std::chrono::system_clock::time_point time) const noexcept;
    /// The facts have empty fields unless the signature is intact.
    [[nodiscard]] const CodeFacts& facts() const noexcept { return facts_; }

private:
    friend class StaticCodeExaminer;
    friend class StaticCodeDecoder;
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
