#pragma once

#include "platform/security/requirement/CodeFacts.h"

#include <tl/expected.hpp>

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace qv {

/// The error of a text that is not a requirement. A caller that reports it as a status says
/// codesign_status::kReqInvalid.
struct RequirementError {
    std::size_t offset = 0; ///< in bytes, of the offending piece
    std::size_t line = 1;
    std::size_t column = 1; ///< in characters
    std::string reason;     ///< half a sentence, lower case
    std::string piece; ///< the offending text as log::foreign shows it; empty at the text's end

    /// `line 2, column 7: REASON: "PIECE"`
    [[nodiscard]] std::string description() const;
};

/// The result of one condition of a requirement.
struct RequirementFinding {
    std::string condition; ///< canonical text
    bool holds = false;
    bool negated = false; ///< an odd number of `!` stands over it: the requirement wants it false
    /// The requirement is not satisfied, and this is one of the fewest conditions that would have
    /// to change for it.
    bool decisive = false;
    std::string remedy; ///< of a decisive one: what to change about the code or the anchors

    [[nodiscard]] bool isMet() const noexcept { return holds != negated; }
    /// The condition, with "not" where it is negated.
    [[nodiscard]] std::string text() const { return (negated ? "not " : "") + condition; }
};

/// Returns the SHA-1 of the DER form of the certificate in a file; none when the file holds no
/// certificate.
using CertificateHashLoader =
    std::function<std::optional<std::array<std::uint8_t, 20>>(const std::string& path)>;

/// A condition on signed code, written in the platform's code requirement language: which
/// identifier it has, which certificates signed it, what its signed dictionaries hold. Immutable;
/// copies share, so that they are cheap, and may be used from several threads.
///
/// The text is ASCII outside of quotes, UTF-8 inside, at most 64 KiB, with at most 1000 nested
/// parentheses and negations. Neither compiling nor anything else here recurses on it.
///
/// Left out, and refused when compiling: stored requirements that are asked for by name (there is
/// no store) and sets of requirements (`host => ...`). `notarized` and `legacy` are always false.
class Requirement {
public:
    static constexpr std::size_t kLongestText = 65536; ///< bytes, of the canonical text as well
    static constexpr std::size_t kDeepestTree = 1000;  ///< levels that evaluation accepts

    /// `loadHash` gives the hash of a certificate that is named by its path (`anchor = "/path"`),
    /// and is called here only; without it such a text is an error.
    static tl::expected<Requirement, RequirementError>
    compile(std::string_view text, const CertificateHashLoader& loadHash = {});

    /// Returns 0 when the code satisfies the requirement, codesign_status::kReqFailed when it does
    /// not, kReqInvalid when the requirement is deeper than kDeepestTree (as a long row of `and`
    /// is).
    [[nodiscard]] std::int32_t evaluate(const CodeFacts& facts) const;

    /// Every condition, in the order of the text.
    [[nodiscard]] std::vector<RequirementFinding> explain(const CodeFacts& facts) const;

    /// The canonical text; it compiles to a requirement that is equal to this.
    [[nodiscard]] const std::string& text() const noexcept;
    /// An indented dump for people: a line for each condition, `not`, and row of `and` or `or`.
    [[nodiscard]] std::string tree() const;

    friend bool operator==(const Requirement& left, const Requirement& right);

private:
    struct Content;
    explicit Requirement(std::shared_ptr<const Content> content) : content_(std::move(content)) {}
    std::shared_ptr<const Content> content_;
};

} // namespace qv
