#pragma once

#include "platform/predicate/Lexer.h"
#include "platform/predicate/language/Literals.h"

#include <string>
#include <string_view>
#include <vector>

namespace qv::predicate {

/// Reads the text of a predicate by the precedence of its operators. Behind a parenthesis it cannot
/// be known whether a predicate or an expression follows, so both are read alike and each operator
/// asks of its operands that they are of its kind.
class Parser {
public:
    /// `text` has to outlive the parser.
    explicit Parser(std::string_view text) : text_(text), lexer_(text), token_(lexer_.next()) {}

    /// Throws a PredicateSyntaxError. Once only.
    Tree parse();

private:
    using Index = std::uint32_t; // of a node
    using Kind = Expression::Kind;
    class Nesting;

    // Tokens:
    [[nodiscard]] bool at(Symbol symbol) const noexcept { return token_.symbol == symbol; }
    void advance() { token_ = lexer_.next(); }
    bool take(Symbol symbol);
    void expect(Symbol symbol, std::string_view what);
    [[noreturn]] void failHere(std::string_view what) const;

    // The rules of the grammar. `least` is the loosest operator that may be taken here.
    Index infix(Level least);
    Index prefix(Level least);
    Index expression(); ///< any, with an assignment
    Index predicate();
    Index junction(Index first, Level level);
    Index comparison(Quantifier quantifier, Index left, std::size_t begin);
    Modifiers modifiers();
    Index quantified(Quantifier quantifier);
    Index negation();
    Index minus();
    Index arithmetic(Index left, std::size_t begin, Level level);
    Index assignment(Index variable);
    Index postfix();
    Index element(Index of);
    Index atom();
    Index atomOfSymbol();
    Index parenthesized();
    Index aggregate();
    Index pathOrFunction();
    Index path(const std::string& path, const Index* of);
    void appendKeys(std::string& path);
    Index function(const Token& name);
    Index call(Symbol form);
    Index subquery();
    Index string();
    Index number();

    // Nodes:
    void requireExpression(Index index, std::size_t begin) const;
    /// Fails at the token behind the operand that was just read.
    void requirePredicate(Index index) const;
    Index add(Expression node, std::size_t begin, std::span<const Index> operands = {});
    /// The operands are what `open_` holds from `mark` on.
    Index addList(Expression node, std::size_t begin, std::size_t mark);
    Index addNamed(Kind kind, std::string_view name, std::size_t begin,
                   std::span<const Index> operands = {});
    Index addConstant(Value value, std::size_t begin);

    std::string_view text_;
    Lexer lexer_;
    Token token_;
    std::size_t pattern_ = std::string_view::npos; // the place of a pattern of LIKE
    std::size_t nesting_ = 0;
    Tree tree_;
    std::vector<std::uint16_t> depths_; // of the nodes
    std::vector<Index> open_;           // operands of lists that are being read
};

} // namespace qv::predicate
