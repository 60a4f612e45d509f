#include "platform/predicate/Parser.h"

#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <utility>

namespace qv::predicate {

namespace {

std::string tooDeep() {
    return fmt::format("more than {} levels are nested here", Tree::kDeepestTree);
}

} // namespace

// Counts one more level as long as it lives.
class Parser::Nesting {
public:
    explicit Nesting(Parser& parser) : nesting_(parser.nesting_) {
        if (nesting_ == Tree::kDeepestTree) {
            failAt(parser.text_, parser.token_.offset, tooDeep());
        }
        ++nesting_;
    }
    Nesting(const Nesting&) = delete;
    Nesting(Nesting&&) = delete;
    Nesting& operator=(const Nesting&) = delete;
    Nesting& operator=(Nesting&&) = delete;
    ~Nesting() { --nesting_; }

private:
    std::size_t& nesting_;
};

Tree Parser::parse() {
    const std::size_t guess = text_.size() / 8 + 4;
    tree_.nodes.reserve(guess);
    tree_.operands.reserve(guess);
    tree_.values.reserve(guess);
    depths_.reserve(guess);
    predicate();
    if (!at(Symbol::end)) {
        failHere("AND, OR or the end of the predicate");
    }
    return std::move(tree_);
}

bool Parser::take(Symbol symbol) {
    if (!at(symbol)) {
        return false;
    }
    advance();
    return true;
}

void Parser::expect(Symbol symbol, std::string_view what) {
    if (!take(symbol)) {
        failHere(what);
    }
}

void Parser::failHere(std::string_view what) const {
    if (at(Symbol::end)) {
        failAt(text_, token_.offset, fmt::format("the text ends where {} should follow", what));
    }
    std::string hint;
    if (at(Symbol::unsupported)) {
        hint = fmt::format(" ({} has no use here)", token_.text);
    } else if (const bool aName = what == "a key" || what == "a value";
               aName && token_.kind == Token::Kind::symbol && isWordStart(token_.text.front())) {
        hint = fmt::format(" ({0} is a reserved word; the key is written #{0})", token_.text);
    }
    failAt(text_, token_.offset, fmt::format("{} should stand here{}", what, hint));
}

Parser::Index Parser::infix(Level least) {
    const Nesting nesting(*this);
    const std::size_t begin = token_.offset;
    Index left = prefix(least);
    while (true) {
        const std::optional<Level> level = infixLevel(token_.symbol);
        if (!level || *level < least) {
            return left;
        }
        switch (*level) {
        case Level::disjunction:
        case Level::conjunction:
            requirePredicate(left);
            left = junction(left, *level);
            break;
        case Level::comparison:
            left = comparison(Quantifier::single, left, begin);
            break;
        case Level::assignment:
            left = assignment(left);
            break;
        default:
            left = arithmetic(left, begin, *level);
        }
    }
}

Parser::Index Parser::prefix(Level least) {
    switch (token_.symbol) {
    case Symbol::negation:
        if (least <= Level::negation) {
            return negation();
        }
        break;
    case Symbol::any:
    case Symbol::all:
    case Symbol::noneOf:
        if (least <= Level::comparison) {
            const auto quantifier = at(Symbol::any)   ? Quantifier::any
                                    : at(Symbol::all) ? Quantifier::all
                                                      : Quantifier::none;
            return quantified(quantifier);
        }
        break;
    case Symbol::subtract:
        return minus();
    default:
        return postfix();
    }
    failHere("a value");
}

Parser::Index Parser::expression() {
    const std::size_t begin = token_.offset;
    const Index index = infix(Level::assignment);
    requireExpression(index, begin);
    return index;
}

Parser::Index Parser::predicate() {
    const Index index = infix(Level::disjunction);
    requirePredicate(index);
    return index;
}

Parser::Index Parser::junction(Index first, Level level) {
    const bool all = level == Level::conjunction;
    const Symbol symbol = all ? Symbol::conjunction : Symbol::disjunction;
    const std::size_t place = token_.offset;
    const std::size_t mark = open_.size();
    open_.push_back(first);
    while (take(symbol)) {
        const Index operand = infix(all ? Level::negation : Level::conjunction);
        requirePredicate(operand);
        open_.push_back(operand);
    }
    return addList({.kind = all ? Kind::conjunction : Kind::disjunction}, place, mark);
}

Parser::Index Parser::comparison(Quantifier quantifier, Index left, std::size_t begin) {
    requireExpression(left, begin);
    Expression node{.kind = Kind::comparison};
    node.comparison = comparisonOf(token_.symbol);
    node.quantifier = quantifier;
    const std::size_t place = token_.offset;
    advance();
    if (at(Symbol::openBracket)) {
        if (node.comparison == Comparison::between) {
            failAt(text_, token_.offset, "BETWEEN takes no modifiers");
        }
        node.modifiers = modifiers();
    }
    if (node.comparison == Comparison::like) {
        pattern_ = token_.offset;
    }
    return add(node, place, std::array{left, expression()});
}

Modifiers Parser::modifiers() {
    advance();
    const Token letters = token_;
    Modifiers result;
    if (letters.text.empty() || !isWordStart(letters.text.front())) {
        failHere("letters out of c, d, n and l");
    }
    for (std::size_t i = 0; i < letters.text.size(); ++i) {
        switch (letters.text[i]) {
        case 'c':
        case 'C':
            result.caseInsensitive = true;
            break;
        case 'd':
        case 'D':
            result.diacriticInsensitive = true;
            break;
        case 'n':
        case 'N':
            result.normalized = true;
            break;
        case 'l':
        case 'L':
            result.localeSensitive = true;
            break;
        default:
            failAt(text_, letters.offset + i,
                   fmt::format("'{}' is none of the modifiers c, d, n and l", letters.text[i]));
        }
    }
    advance();
    expect(Symbol::closeBracket, "']'");
    return result;
}

Parser::Index Parser::quantified(Quantifier quantifier) {
    advance();
    const std::size_t begin = token_.offset;
    const Index left = infix(Level::assignment);
    if (infixLevel(token_.symbol) != Level::comparison) {
        failHere("a comparison operator");
    }
    return comparison(quantifier, left, begin);
}

Parser::Index Parser::negation() {
    const std::size_t place = token_.offset;
    advance();
    const Index operand = infix(Level::negation);
    requirePredicate(operand);
    return add({.kind = Kind::negation}, place, std::array{operand});
}

Parser::Index Parser::minus() {
    const Nesting nesting(*this);
    const std::size_t place = token_.offset;
    advance();
    const std::size_t begin = token_.offset;
    const Index operand = prefix(Level::unary);
    requireExpression(operand, begin);
    return add({.kind = Kind::minus}, place, std::array{operand});
}

Parser::Index Parser::arithmetic(Index left, std::size_t begin, Level level) {
    requireExpression(left, begin);
    Expression node{.kind = Kind::arithmetic};
    node.arithmetic = arithmeticOf(token_.symbol);
    const std::size_t place = token_.offset;
    advance();
    const std::size_t rightBegin = token_.offset;
    const Index right = infix(static_cast<Level>(static_cast<int>(level) + 1));
    requireExpression(right, rightBegin);
    return add(node, place, std::array{left, right});
}

Parser::Index Parser::assignment(Index variable) {
    if (tree_.nodes[variable].kind != Kind::variable) {
        failAt(text_, token_.offset, "only a $variable can stand before ':='");
    }
    const std::size_t place = token_.offset;
    advance();
    Expression node{.kind = Kind::assignment};
    node.value = tree_.nodes[variable].value;
    return add(node, place, std::array{expression()});
}

void Parser::requireExpression(Index index, std::size_t begin) const {
    if (tree_.nodes[index].isPredicate()) {
        failAt(text_, begin, "a value should stand here, not a predicate");
    }
}

void Parser::requirePredicate(Index index) const {
    if (!tree_.nodes[index].isPredicate()) {
        failHere("a comparison operator (a value alone is not a predicate)");
    }
}

Parser::Index Parser::add(Expression node, std::size_t begin, std::span<const Index> operands) {
    std::uint16_t depth = 0;
    for (const Index operand : operands) {
        depth = std::max(depth, depths_[operand]);
    }
    if (depth == Tree::kDeepestTree) {
        failAt(text_, begin, tooDeep());
    }
    node.firstOperand = static_cast<std::uint32_t>(tree_.operands.size());
    node.operandCount = static_cast<std::uint32_t>(operands.size());
    tree_.operands.insert(tree_.operands.end(), operands.begin(), operands.end());
    tree_.nodes.push_back(node);
    depths_.push_back(static_cast<std::uint16_t>(depth + 1));
    return static_cast<Index>(tree_.nodes.size() - 1);
}

Parser::Index Parser::addList(Expression node, std::size_t begin, std::size_t mark) {
    const Index index = add(node, begin, std::span(open_).subspan(mark));
    open_.resize(mark);
    return index;
}

Parser::Index Parser::addNamed(Kind kind, std::string_view name, std::size_t begin,
                               std::span<const Index> operands) {
    Expression node{.kind = kind};
    node.value = static_cast<std::uint32_t>(tree_.values.size());
    tree_.values.push_back(Value::string(name));
    return add(node, begin, operands);
}

Parser::Index Parser::addConstant(Value value, std::size_t begin) {
    Expression node{.kind = Kind::constant};
    node.value = static_cast<std::uint32_t>(tree_.values.size());
    tree_.values.push_back(std::move(value));
    return add(node, begin);
}

} // namespace qv::predicate
