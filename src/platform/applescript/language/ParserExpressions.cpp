#include "platform/applescript/language/ScriptParser.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <utility>

namespace qv::applescript {

Node* Parser::expression() { return binary(Level::disjunction); }

// Operators that bind as tightly as `least` or more.
Node* Parser::binary(Level least) {
    Node* left = prefix(least);
    while (true) {
        if (at(Word::as) && !stops_.atAs && least <= Level::coercion) {
            left = coercion(left);
            continue;
        }
        const bool isPassive = at(Word::is) || at(Word::isnt);
        if (isPassive && least <= Level::comparison &&
            at(Word::running, at(Word::not_, 1) ? 2 : 1)) {
            left = running(left);
            continue;
        }
        if (least <= Level::comparison && match().command == Term::exists) {
            auto* node = makeAt<CommandNode>(left->begin);
            advance();
            node->command = Term::exists;
            node->direct = left;
            above(node, left);
            left = done(node);
            continue;
        }
        const OperatorPhrase phrase = operatorAt(std::span(line_).subspan(index_));
        if (phrase.length == 0 || phrase.level < least) {
            return left;
        }
        left = operation(left, phrase);
    }
}

Node* Parser::operation(Node* left, const OperatorPhrase& phrase) {
    auto* node = makeAt<Binary>(left->begin);
    advance(phrase.length);
    node->operation = phrase.operation;
    node->left = left;
    // Only powers group from the right.
    const auto tighter = static_cast<Level>(static_cast<int>(phrase.level) + 1);
    const bool isPower = phrase.level == Level::power;
    if (isPower) {
        const Nesting nesting(*this, expressions_);
        node->right = binary(phrase.level);
    } else {
        node->right = binary(tighter);
    }
    const Level least = isPower ? tighter : phrase.level;
    above(node, left, isLoose(left, least) ? 1 : 0);
    const Level leastRight = isPower ? phrase.level : tighter;
    above(node, node->right, isPower || isLoose(node->right, leastRight) ? 1 : 0);
    return done(node);
}

// `X is running`, `X is not running`.
Node* Parser::running(Node* left) {
    auto* node = makeAt<CommandNode>(left->begin);
    const bool isNot = at(Word::isnt) || at(Word::not_, 1);
    advance(at(Word::not_, 1) ? 3 : 2);
    node->command = Term::isRunning;
    node->direct = left;
    above(node, left, isLoose(left, Level::comparison) ? 1 : 0);
    done(node);
    if (!isNot) {
        return node;
    }
    auto* negation = makeAt<Unary>(left->begin);
    negation->operation = UnaryOperator::logicalNot;
    negation->operand = node;
    above(negation, node);
    return done(negation);
}

Node* Parser::coercion(Node* left) {
    auto* node = makeAt<Coercion>(left->begin);
    advance();
    node->value = left;
    node->types = types();
    above(node, left, isLoose(left, Level::coercion) ? 1 : 0);
    return done(node);
}

std::span<const Term> Parser::types() {
    std::vector<Term> found;
    if (take(Kind::leftBrace)) {
        do {
            found.push_back(typeName());
        } while (take(Kind::comma));
        expect(Kind::rightBrace, "}");
    } else {
        found.push_back(typeName());
    }
    return tree_.keep(std::span<const Term>(found));
}

Node* Parser::prefix(Level least) {
    const bool isNot = at(Word::not_);
    if (!isNot && !at(Kind::minus) && !at(Kind::plus)) {
        return reference();
    }
    const Nesting nesting(*this, expressions_);
    auto* node = make<Unary>();
    node->operation = isNot             ? UnaryOperator::logicalNot
                      : at(Kind::minus) ? UnaryOperator::negate
                                        : UnaryOperator::plus;
    advance();
    node->operand = isNot ? binary(Level::equality) : prefix(least);
    above(node, node->operand);
    return done(node);
}

Node* Parser::parenthesized() {
    const Nesting nesting(*this, expressions_);
    const Restore<Stops> restore(stops_, {});
    expect(Kind::leftParenthesis, "(");
    Node* node = expression();
    expect(Kind::rightParenthesis, ")");
    return node;
}

void Parser::expectListEnd() {
    if (!take(Kind::rightBrace)) {
        failExpected("“,” or “}”");
    }
}

Node* Parser::listOrRecord() {
    const Nesting nesting(*this, expressions_);
    const Restore<Stops> restore(stops_, {});
    const std::uint32_t begin = token().begin;
    expect(Kind::leftBrace, "{");
    if (keyLength() != 0) {
        return record(begin);
    }
    auto* node = makeAt<ListNode>(begin);
    std::vector<const Node*> items;
    if (!at(Kind::rightBrace)) {
        do {
            items.push_back(expression());
            above(node, items.back());
        } while (take(Kind::comma));
    }
    expectListEnd();
    node->items = tree_.keep(std::span<const Node* const>(items));
    return done(node);
}

// The number of tokens in the key of a field, 0 if none stands here. The words of a term count in
// all places.
std::size_t Parser::keyLength() const {
    if (at(Kind::quotedName) && at(Kind::colon, 1)) {
        return 1;
    }
    if (!at(Kind::word)) {
        return 0;
    }
    for (const Phrase& phrase : Vocabulary::shared().phrasesOf(token().word)) {
        if (fits(phrase, index_) && at(Kind::colon, phrase.length)) {
            return phrase.length;
        }
    }
    return at(Kind::colon, 1) && !Vocabulary::isReserved(token().word) ? 1 : 0;
}

std::string Parser::key(std::size_t length) {
    if (at(Kind::word)) {
        for (const Phrase& phrase : Vocabulary::shared().phrasesOf(token().word)) {
            if (phrase.length == length && !phrase.isPlural && fits(phrase, index_)) {
                advance(length);
                return std::string(phrase.info->words);
            }
        }
    }
    std::string name = lowered(nameOf(token()));
    advance(length);
    return name;
}

Node* Parser::record(std::uint32_t begin) {
    auto* node = makeAt<RecordNode>(begin);
    std::vector<RecordNode::Field> fields;
    do {
        const std::size_t length = keyLength();
        if (length == 0) {
            failExpected("identifier");
        }
        const std::string_view name = tree_.keep(key(length));
        expect(Kind::colon, ":");
        fields.push_back({name, expression()});
        above(node, fields.back().value);
    } while (take(Kind::comma));
    expectListEnd();
    node->fields = tree_.keep(std::span<const RecordNode::Field>(fields));
    return done(node);
}

Node* Parser::number() {
    static constexpr double kLargestInteger = 536870911;
    auto* node = make<Literal>();
    const std::string_view digits = lexer_.textOf(token());
    double value = 0;
    const auto [end, problem] =
        std::from_chars(digits.data(), digits.data() + digits.size(), value);
    if (problem == std::errc::result_out_of_range && digits.find("e-") == std::string_view::npos &&
        digits.find("E-") == std::string_view::npos && digits.front() != '.' &&
        !digits.starts_with("0.")) {
        fail(error_number::kNameTooLong, "The name or number is too long.");
    }
    const bool isInteger =
        digits.find_first_of(".eE") == std::string_view::npos && value <= kLargestInteger;
    node->value = isInteger ? ScriptValue::integer(static_cast<std::int64_t>(value))
                            : ScriptValue::real(value);
    advance();
    return done(node);
}

Node* Parser::text() {
    static constexpr std::string_view kLetters = "nrt";
    static constexpr std::string_view kMeanings = "\n\r\t";
    auto* node = make<Literal>();
    std::string_view written = lexer_.textOf(token());
    written = written.substr(1, written.size() - 2);
    std::string value;
    value.reserve(written.size());
    for (std::size_t index = 0; index < written.size(); ++index) {
        if (written[index] != '\\') {
            value += written[index];
            continue;
        }
        ++index;
        const std::size_t letter = kLetters.find(written[index]);
        value += letter == std::string_view::npos ? written[index] : kMeanings[letter];
    }
    node->value = ScriptValue::text(std::move(value));
    advance();
    return done(node);
}

} // namespace qv::applescript
