#include "platform/security/requirement/RequirementParser.h"

#include <fmt/core.h>

#include <algorithm>
#include <utility>

namespace qv {

using namespace requirement;

namespace {

using Kind = RequirementToken::Kind;

// The length of an unquoted value as it was meant: `4AB`, `com.x-y`.
std::size_t runLength(std::string_view text) {
    const auto belongs = [](char c) {
        return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
               c == '.' || c == '-' || c == '_';
    };
    return static_cast<std::size_t>(std::ranges::find_if_not(text, belongs) - text.begin());
}

} // namespace

RequirementParser::RequirementParser(std::string_view text, const CertificateHashLoader& loadHash)
    : text_(text), loadHash_(loadHash), lexer_(text), token_(lexer_.next()) {}

tl::expected<RequirementTree, RequirementFault> RequirementParser::parse() {
    do {
        if (!readOperand() || !readClosings()) {
            return tl::unexpected(std::move(fault_));
        }
    } while (readOperator());
    if (!finish()) {
        return tl::unexpected(std::move(fault_));
    }
    tree_.depth = operands_.back().depth;
    return std::move(tree_);
}

bool RequirementParser::at(std::string_view keywordOrSymbol) const noexcept {
    return (token_.kind == Kind::keyword || token_.kind == Kind::symbol) &&
           token_.value == keywordOrSymbol;
}

void RequirementParser::advance() {
    previous_ = std::move(token_);
    token_ = lexer_.next();
}

bool RequirementParser::take(std::string_view keywordOrSymbol) {
    if (!at(keywordOrSymbol)) {
        return false;
    }
    advance();
    return true;
}

std::nullopt_t RequirementParser::fail(const RequirementToken& token, std::string reason) {
    fault_ = RequirementFault{token.offset, token.length, std::move(reason)};
    return std::nullopt;
}

std::nullopt_t RequirementParser::failToFind(std::string_view what) {
    const bool touchesWord = previous_.kind == Kind::word && previous_.end() == token_.offset;
    const std::string_view rest = text_.substr(token_.offset);
    if (touchesWord && (rest.starts_with('-') || rest.starts_with('_'))) {
        return failUnquoted(previous_,
                            fmt::format("a value that holds '{}' must be quoted", rest.front()));
    }
    switch (token_.kind) {
    case Kind::invalid:
        return fail(token_, token_.value);
    case Kind::end:
        return fail(token_, fmt::format("the text ends where {} should follow", what));
    default:
        return fail(token_, fmt::format("{} should stand here", what));
    }
}

std::nullopt_t RequirementParser::failUnquoted(const RequirementToken& begin, std::string reason) {
    fault_ =
        RequirementFault{begin.offset, runLength(text_.substr(begin.offset)), std::move(reason)};
    return std::nullopt;
}

bool RequirementParser::readOperand() {
    while (at("(") || at("!")) {
        if (!open(at("(") ? Waiting::parenthesis : Waiting::negation)) {
            return false;
        }
        advance();
    }
    std::optional<Condition> read = condition();
    if (!read.has_value()) {
        return false;
    }
    push(*std::move(read), 1);
    reduceWhile(Waiting::negation);
    return true;
}

bool RequirementParser::open(Waiting kind) {
    if (nesting_ == kDeepestNesting) {
        fail(token_, fmt::format("more than {} parentheses and negations are nested here",
                                 kDeepestNesting));
        return false;
    }
    ++nesting_;
    operators_.push_back({kind, token_});
    return true;
}

bool RequirementParser::readClosings() {
    while (at(")")) {
        reduceWhile(Waiting::disjunction);
        if (operators_.empty()) {
            fail(token_, "no parenthesis is open here");
            return false;
        }
        operators_.pop_back();
        --nesting_;
        advance();
        reduceWhile(Waiting::negation);
    }
    return true;
}

bool RequirementParser::readOperator() {
    const Waiting kind = at("and") ? Waiting::conjunction : Waiting::disjunction;
    if (!at("and") && !at("or")) {
        return false;
    }
    reduceWhile(kind);
    operators_.push_back({kind, token_});
    advance();
    return true;
}

bool RequirementParser::finish() {
    const bool atEnd = at(Kind::end) || at(";");
    if (atEnd) {
        reduceWhile(Waiting::disjunction);
        if (!operators_.empty()) {
            fail(operators_.back().token, "this parenthesis is not closed");
            return false;
        }
        while (take(";")) {
        }
    }
    if (!at(Kind::end)) {
        failToFind(atEnd ? "nothing but ';'" : "'and', 'or' or the end of the requirement");
        return false;
    }
    return true;
}

void RequirementParser::reduceWhile(Waiting least) {
    while (!operators_.empty() && operators_.back().kind >= least) {
        const Waiting kind = operators_.back().kind;
        operators_.pop_back();
        const Operand right = operands_.back();
        operands_.pop_back();
        if (kind == Waiting::negation) {
            --nesting_;
            push(Negation{right.node}, right.depth + 1);
            continue;
        }
        const Operand left = operands_.back();
        operands_.pop_back();
        const auto junction = kind == Waiting::conjunction ? Junction::Kind::conjunction
                                                           : Junction::Kind::disjunction;
        push(Junction{junction, left.node, right.node}, std::max(left.depth, right.depth) + 1);
    }
}

void RequirementParser::push(TreeNode node, std::size_t depth) {
    operands_.push_back({static_cast<std::uint32_t>(tree_.nodes.size()), depth});
    tree_.nodes.push_back(std::move(node));
}

} // namespace qv
