#include "platform/security/requirement/Requirement.h"

#include "platform/foundation/log/Log.h"
#include "platform/foundation/values/UTF8.h"
#include "platform/security/requirement/CodeSigningStatus.h"
#include "platform/security/requirement/RequirementParser.h"
#include "platform/security/requirement/RequirementTree.h"

#include <fmt/core.h>

#include <algorithm>
#include <utility>

namespace qv {

struct Requirement::Content {
    RequirementTree tree;
    std::string text;
};

namespace {

constexpr std::size_t kLongestPiece = 64; // shown in an error

// Takes a fault whose offset lies behind nothing but valid UTF-8.
RequirementError locate(std::string_view text, const RequirementFault& fault) {
    const std::string_view before = text.substr(0, fault.offset);
    const std::size_t lineBegin = before.rfind('\n') + 1; // 0 when there is none
    RequirementError error;
    error.offset = fault.offset;
    error.line += static_cast<std::size_t>(std::ranges::count(before, '\n'));
    for (std::size_t index = lineBegin; index < before.size(); ++error.column) {
        static_cast<void>(decodeUTF8(before, index)); // only its length counts
    }
    error.reason = fault.reason;
    error.piece = log::foreign(text.substr(fault.offset, fault.length), kLongestPiece);
    return error;
}

std::optional<RequirementFault> encodingFault(std::string_view text) {
    if (text.size() > Requirement::kLongestText) {
        return RequirementFault{
            0, text.size(),
            fmt::format("the text is longer than {} bytes", Requirement::kLongestText)};
    }
    const std::size_t valid = validUTF8Length(text);
    if (const std::size_t zero = text.substr(0, valid).find('\0'); zero != std::string_view::npos) {
        return RequirementFault{zero, 1, "a NUL byte may not stand in a requirement"};
    }
    if (valid < text.size()) {
        return RequirementFault{valid, 1, "this byte is not valid UTF-8"};
    }
    return std::nullopt;
}

} // namespace

std::string RequirementError::description() const {
    const std::string shown = piece.empty() ? "" : fmt::format(": \"{}\"", piece);
    return fmt::format("line {}, column {}: {}{}", line, column, reason, shown);
}

tl::expected<Requirement, RequirementError>
Requirement::compile(std::string_view text, const CertificateHashLoader& loadHash) {
    if (const std::optional<RequirementFault> fault = encodingFault(text)) {
        return tl::unexpected(locate(text, *fault));
    }
    tl::expected<RequirementTree, RequirementFault> tree =
        RequirementParser(text, loadHash).parse();
    if (!tree.has_value()) {
        return tl::unexpected(locate(text, tree.error()));
    }
    std::string canonical = canonicalText(*tree);
    if (canonical.size() > kLongestText) {
        return tl::unexpected(locate(
            text, {0, text.size(),
                   fmt::format("written in full the text is longer than {} bytes", kLongestText)}));
    }
    return Requirement(
        std::make_shared<const Content>(Content{*std::move(tree), std::move(canonical)}));
}

std::int32_t Requirement::evaluate(const CodeFacts& facts) const {
    if (content_->tree.depth > kDeepestTree) {
        return codesign_status::kReqInvalid;
    }
    return holds(content_->tree, facts) ? codesign_status::kSuccess : codesign_status::kReqFailed;
}

std::vector<RequirementFinding> Requirement::explain(const CodeFacts& facts) const {
    return findings(content_->tree, facts);
}

const std::string& Requirement::text() const noexcept { return content_->text; }

std::string Requirement::tree() const { return indentedDump(content_->tree); }

bool operator==(const Requirement& left, const Requirement& right) {
    return left.content_ == right.content_ ||
           left.content_->tree.nodes == right.content_->tree.nodes;
}

} // namespace qv
