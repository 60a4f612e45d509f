#pragma once

#include "platform/security/requirement/Requirement.h"
#include "platform/security/requirement/RequirementLexer.h"
#include "platform/security/requirement/RequirementTree.h"

#include <tl/expected.hpp>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace qv {

/// The place at which a text stops being a requirement, and the reason.
struct RequirementFault {
    std::size_t offset = 0; ///< in bytes
    std::size_t length = 0;
    std::string reason;
};

/// Reads one requirement. Operators wait on a stack of its own until their operands are complete,
/// so that no nesting of the text uses the call stack.
class RequirementParser {
public:
    /// The most nested parentheses and negations that a text may have.
    static constexpr std::size_t kDeepestNesting = 1000;

    /// `text` is valid UTF-8 without NUL. Both parameters must outlive the parser.
    RequirementParser(std::string_view text, const CertificateHashLoader& loadHash);

    tl::expected<RequirementTree, RequirementFault> parse();

private:
    enum class Waiting : std::uint8_t { parenthesis, disjunction, conjunction, negation };
    struct Pending {
        Waiting kind = Waiting::parenthesis;
        RequirementToken token;
    };
    struct Operand {
        std::uint32_t node = 0;
        std::size_t depth = 0;
    };

    // Tokens.
    [[nodiscard]] bool at(std::string_view keywordOrSymbol) const noexcept;
    [[nodiscard]] bool at(RequirementToken::Kind kind) const noexcept {
        return token_.kind == kind;
    }
    void advance();
    bool take(std::string_view keywordOrSymbol);
    bool takeEqual() { return take("=") || take("=="); }

    // These note a fault, and give nothing, so that a reader can return their result.
    std::nullopt_t fail(const RequirementToken& token, std::string reason);
    std::nullopt_t failToFind(std::string_view what);
    std::nullopt_t failUnquoted(const RequirementToken& begin, std::string reason);

    // Operands and operators.
    bool readOperand();
    bool readClosings();
    bool readOperator();
    bool finish();
    bool open(Waiting kind);
    void reduceWhile(Waiting least);
    void push(requirement::TreeNode node, std::size_t depth);

    // Conditions.
    std::optional<requirement::Condition> condition();
    std::nullopt_t failCondition();
    std::optional<requirement::Condition> identifier();
    std::optional<requirement::Condition> codeHash();
    std::optional<requirement::Condition> platform();
    std::optional<requirement::Condition>
    dictionaryEntry(requirement::DictionaryEntry::Source source);
    std::optional<requirement::Condition> anchor();
    std::optional<requirement::Condition> appleAnchor();
    std::optional<requirement::Condition> certificate();
    std::optional<requirement::Condition> certificateTest(std::int32_t slot);
    std::optional<requirement::Condition> certificateEntry(std::int32_t slot);
    std::optional<std::int32_t> slot();
    std::optional<requirement::Hash> hash();
    std::optional<std::string> value(std::string_view what);
    std::optional<RequirementToken> key(); ///< of the value, for faults of its content
    std::optional<requirement::Match> match();
    std::optional<requirement::Match> textMatch(requirement::Operator op);
    std::optional<requirement::Match> instantMatch(requirement::Operator op);

    std::string_view text_;
    const CertificateHashLoader& loadHash_;
    RequirementLexer lexer_;
    RequirementToken token_;
    RequirementToken previous_;
    std::vector<Pending> operators_;
    std::vector<Operand> operands_;
    std::size_t nesting_ = 0;
    RequirementTree tree_;
    RequirementFault fault_; ///< once a reader gave nothing
};

} // namespace qv
