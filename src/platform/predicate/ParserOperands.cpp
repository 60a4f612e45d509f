#include "platform/predicate/Parser.h"
#include "platform/predicate/Predicate.h"
#include "platform/predicate/evaluation/Functions.h"
#include "platform/predicate/language/Reasons.h"

#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <utility>

namespace qv::predicate {

Parser::Index Parser::postfix() {
    const std::size_t begin = token_.offset;
    Index index = atom();
    while (at(Symbol::dot) || at(Symbol::openBracket)) {
        requireExpression(index, begin);
        if (at(Symbol::openBracket)) {
            index = element(index);
        } else {
            const bool ofObject = tree_.nodes[index].kind == Kind::self;
            std::string keys;
            appendKeys(keys);
            index = path(keys, ofObject ? nullptr : &index);
        }
    }
    return index;
}

Parser::Index Parser::element(Index of) {
    Expression node{.kind = Kind::element};
    const std::size_t place = token_.offset;
    advance();
    if (take(Symbol::first)) {
        node.position = Position::first;
    } else if (take(Symbol::last)) {
        node.position = Position::last;
    } else if (take(Symbol::size)) {
        node.position = Position::size;
    } else {
        const Index subscript = expression();
        expect(Symbol::closeBracket, "']'");
        return add(node, place, std::array{of, subscript});
    }
    expect(Symbol::closeBracket, "']'");
    return add(node, place, std::array{of});
}

Parser::Index Parser::atom() {
    const std::size_t place = token_.offset;
    const Token token = token_;
    switch (token.kind) {
    case Token::Kind::string:
        return string();
    case Token::Kind::number:
        return number();
    case Token::Kind::variable:
        advance();
        return addNamed(Kind::variable, token.text, place);
    case Token::Kind::identifier:
    case Token::Kind::key:
        return pathOrFunction();
    case Token::Kind::selector:
        advance();
        return function(token);
    case Token::Kind::symbol:
        break;
    }
    return atomOfSymbol();
}

Parser::Index Parser::atomOfSymbol() {
    const std::size_t place = token_.offset;
    const Symbol symbol = token_.symbol;
    switch (symbol) {
    case Symbol::openParenthesis:
        return parenthesized();
    case Symbol::openBrace:
        return aggregate();
    case Symbol::truePredicate:
    case Symbol::falsePredicate:
        advance();
        return add({.kind = Kind::truth, .truth = symbol == Symbol::truePredicate}, place);
    case Symbol::trueConstant:
    case Symbol::falseConstant:
        advance();
        return addConstant(Value::boolean(symbol == Symbol::trueConstant), place);
    case Symbol::null:
        advance();
        return addConstant({}, place);
    case Symbol::self:
        advance();
        return add({.kind = Kind::self}, place);
    case Symbol::cast:
    case Symbol::function:
    case Symbol::ternary:
        return call(symbol);
    case Symbol::subquery:
        return subquery();
    default:
        failHere("a value");
    }
}

Parser::Index Parser::parenthesized() {
    advance();
    const Index inner = infix(Level::disjunction);
    expect(Symbol::closeParenthesis, "')'");
    return inner;
}

Parser::Index Parser::aggregate() {
    const std::size_t place = token_.offset;
    const std::size_t mark = open_.size();
    advance();
    if (!at(Symbol::closeBrace)) {
        do {
            open_.push_back(expression());
        } while (take(Symbol::comma));
    }
    expect(Symbol::closeBrace, "',' or '}'");
    const std::span<const Index> operands = std::span(open_).subspan(mark);
    Expression node{.kind = Kind::aggregate};
    const auto valueOf = [&](Index operand) { return tree_.nodes[operand].value; };
    const auto isKnown = [&](Index operand) {
        const Kind kind = tree_.nodes[operand].kind;
        return kind == Kind::constant ||
               (kind == Kind::aggregate && valueOf(operand) != Expression::kNoValue);
    };
    if (std::ranges::all_of(operands, isKnown)) {
        std::vector<Value> elements;
        elements.reserve(operands.size());
        for (const Index operand : operands) {
            elements.push_back(tree_.values[valueOf(operand)]);
        }
        node.value = static_cast<std::uint32_t>(tree_.values.size());
        tree_.values.push_back(Value::array(std::move(elements)));
    }
    return addList(node, place, mark);
}

Parser::Index Parser::pathOrFunction() {
    const Token name = token_;
    advance();
    if (name.kind == Token::Kind::identifier && at(Symbol::openParenthesis)) {
        return function(name);
    }
    std::string keys(name.text);
    if (at(Symbol::dot)) {
        appendKeys(keys += '.');
    }
    return path(keys, nullptr);
}

void Parser::appendKeys(std::string& path) {
    advance();
    while (true) {
        if (token_.kind != Token::Kind::identifier && token_.kind != Token::Kind::key) {
            failHere("a key");
        }
        path += token_.text;
        advance();
        if (!take(Symbol::dot)) {
            return;
        }
        path += '.';
    }
}

Parser::Index Parser::path(const std::string& path, const Index* of) {
    const Index index = addNamed(Kind::keyPath, path, token_.offset,
                                 of == nullptr ? std::span<const Index>{} : std::span(of, 1));
    tree_.nodes[index].singleKey = path.find_first_of(".@") == std::string::npos;
    return index;
}

Parser::Index Parser::function(const Token& name) {
    const std::size_t mark = open_.size();
    expect(Symbol::openParenthesis, "'('");
    if (!at(Symbol::closeParenthesis)) {
        do {
            open_.push_back(expression());
        } while (take(Symbol::comma));
    }
    expect(Symbol::closeParenthesis, "',' or ')'");
    const std::size_t count = open_.size() - mark;
    const std::optional<std::uint8_t> index = functionNamed(name.text);
    if (!index) {
        failAt(text_, name.offset, fmt::format("there is no function {}", quoted(name.text)));
    }
    const Function& function = functionAt(*index);
    if (function.argumentCount != count) {
        failAt(text_, name.offset,
               fmt::format("{} has {} argument(s), not {}", function.name, function.argumentCount,
                           count));
    }
    Expression node{.kind = Kind::function};
    node.function = *index;
    return addList(node, name.offset, mark);
}

Parser::Index Parser::call(Symbol form) {
    const std::size_t place = token_.offset;
    const std::size_t mark = open_.size();
    advance();
    expect(Symbol::openParenthesis, "'('");
    open_.push_back(form == Symbol::ternary ? predicate() : expression());
    const auto argument = [&] {
        expect(Symbol::comma, "','");
        open_.push_back(expression());
    };
    argument();
    Kind kind = Kind::cast;
    if (form == Symbol::ternary) {
        kind = Kind::ternary;
        argument();
    } else if (form == Symbol::function) {
        kind = Kind::invocation;
        while (at(Symbol::comma)) {
            argument();
        }
    }
    expect(Symbol::closeParenthesis, "')'");
    return addList({.kind = kind}, place, mark);
}

Parser::Index Parser::subquery() {
    const std::size_t place = token_.offset;
    advance();
    expect(Symbol::openParenthesis, "'('");
    const Index collection = expression();
    expect(Symbol::comma, "','");
    const Token variable = token_;
    if (variable.kind != Token::Kind::variable) {
        failHere("a $variable");
    }
    advance();
    expect(Symbol::comma, "','");
    const Index condition = predicate();
    expect(Symbol::closeParenthesis, "')'");
    return addNamed(Kind::subquery, variable.text, place, std::array{collection, condition});
}

Parser::Index Parser::string() {
    const Token token = token_;
    const auto wildcards =
        token.offset == pattern_ ? WildcardEscapes::kept : WildcardEscapes::dropped;
    advance();
    try {
        return addConstant(Value::string(stringOfLiteral(token.text, wildcards)), token.offset);
    } catch (const LiteralFault& fault) {
        failAt(text_, token.offset + fault.offset(), fault.what());
    }
}

Parser::Index Parser::number() {
    const Token token = token_;
    advance();
    try {
        return addConstant(numberOfLiteral(token.text), token.offset);
    } catch (const LiteralFault& fault) {
        failAt(text_, token.offset + fault.offset(), fault.what());
    }
}

} // namespace qv::predicate
