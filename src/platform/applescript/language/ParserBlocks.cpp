#include "platform/applescript/language/ScriptParser.h"

#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <utility>

namespace qv::applescript {

// The lines up to one that ends the block or goes on with another part of it.
const Block* Parser::block(const Ends& ends) {
    endLine();
    auto* node = make<Block>();
    std::vector<const Node*> statements;
    while (!at(Word::end) && !(ends.isIf && at(Word::else_)) &&
           !(ends.isTry && atWords({Word::on, Word::error}))) {
        if (at(Kind::endOfScript)) {
            failExpected(ends.isHandler ? "“end”" : fmt::format("“end” or “end {}”", ends.word));
        }
        if (const Node* each = statement(); each != nullptr) {
            statements.push_back(each);
        }
        endLine();
    }
    node->statements = tree_.keep(std::span<const Node* const>(statements));
    node->end = statements.empty() ? node->begin : statements.back()->end;
    return node;
}

// `end`, `end if`, and the name of the handler or nothing behind it.
void Parser::endBlock(const Ends& ends) {
    advance();
    if (atLineEnd()) {
        return;
    }
    if (ends.isHandler) {
        const Match found = match();
        advance(std::max(found.length, std::size_t{1}));
        return;
    }
    const std::string word = lowered(lexer_.textOf(token()));
    if (word != ends.word.substr(0, ends.word.find(' ')) && !(ends.isTry && word == "error")) {
        --index_;
        failExpected(fmt::format("“end” or “end {}”", ends.word));
    }
    advance();
    if (word == "using" && take(Word::terms)) {
        expect(Word::from, "from");
    }
}

// The statement behind `then` or `to` in the same line.
const Block* Parser::oneStatement() {
    auto* node = make<Block>();
    if (at(Word::global) || at(Word::local)) {
        failExpected("expression");
    }
    const Node* const only = statement();
    node->statements = tree_.keep(std::span(&only, 1));
    return done(node);
}

const Node* Parser::ifStatement() {
    static constexpr Ends kEnds{.word = "if", .isIf = true};
    auto* node = make<IfStatement>();
    std::vector<IfStatement::Branch> branches;
    advance();
    while (true) {
        const Node* condition = headerPart(Word::then, &Parser::expression);
        take(Word::then);
        if (!atLineEnd()) {
            branches.push_back({condition, oneStatement()});
            oneLineIf(node, branches);
            return done(node);
        }
        branches.push_back({condition, block(kEnds)});
        if (!take(Word::else_)) {
            break;
        }
        if (!take(Word::if_)) {
            node->otherwise = block({.word = "if"});
            break;
        }
    }
    endBlock(kEnds);
    node->branches = tree_.keep(std::span<const IfStatement::Branch>(branches));
    return done(node);
}

// Parses the branches behind the first statement of `if a then b else c`.
void Parser::oneLineIf(IfStatement* node, std::vector<IfStatement::Branch>& branches) {
    node->isOneLine = true;
    while (take(Word::else_)) {
        if (!take(Word::if_)) {
            node->otherwise = oneStatement();
            break;
        }
        const Node* condition = expression();
        expect(Word::then, "then");
        branches.push_back({condition, oneStatement()});
    }
    node->branches = tree_.keep(std::span<const IfStatement::Branch>(branches));
}

const Node* Parser::repeatStatement() {
    static constexpr Ends kEnds{.word = "repeat"};
    using RepeatForm = RepeatStatement::Form;
    auto* node = make<RepeatStatement>();
    advance();
    if (take(Word::while_)) {
        node->form = RepeatForm::whileTrue;
        node->first = headerPart(Word::end_, &Parser::expression);
    } else if (take(Word::until)) {
        node->form = RepeatForm::until;
        node->first = headerPart(Word::end_, &Parser::expression);
    } else if (take(Word::with)) {
        repeatWith(node);
    } else if (!atLineEnd()) {
        node->form = RepeatForm::times;
        node->first = expression();
        take(Word::times);
    }
    ++loops_;
    node->block = block(kEnds);
    --loops_;
    endBlock(kEnds);
    return done(node);
}

void Parser::repeatWith(RepeatStatement* node) {
    const Token name = variableName();
    node->variable = variable(name);
    if (take(Word::in)) {
        node->form = RepeatStatement::Form::in;
        node->first = headerPart(Word::end_, &Parser::expression);
        return;
    }
    node->form = RepeatStatement::Form::counting;
    if (!at(Word::from)) {
        failExpected("“from” or “in”");
    }
    advance();
    node->first = expression();
    expect(Word::to, "to");
    node->last = expression();
    if (take(Word::by)) {
        node->step = expression();
    }
}

const Node* Parser::tellStatement() {
    static constexpr Ends kEnds{.word = "tell"};
    auto* node = make<TellStatement>();
    advance();
    node->target = headerPart(Word::to, &Parser::reference);
    const Restore<Context> restore(context_, context_);
    learnTarget(node->target);
    if (take(Word::to)) {
        node->isOneLine = true;
        node->block = oneStatement();
        return done(node);
    }
    node->block = block(kEnds);
    endBlock(kEnds);
    return done(node);
}

void Parser::learnTarget(const Node* target) {
    while (target != nullptr) {
        switch (target->kind) {
        case NodeKind::propertyOf:
            target = static_cast<const PropertyOf*>(target)->container;
            continue;
        case NodeKind::element:
            target = static_cast<const Element*>(target)->container;
            continue;
        case NodeKind::me:
            context_.tellsOther = false;
            return;
        case NodeKind::literal:
            context_.tellsOther =
                context_.tellsOther &&
                !static_cast<const Literal*>(target)->value.isConstant(Term::currentApplication);
            return;
        case NodeKind::applicationObject: {
            const Node* name = static_cast<const ApplicationObject*>(target)->name;
            const auto* text =
                name->kind == NodeKind::literal ? static_cast<const Literal*>(name) : nullptr;
            const bool isText = text != nullptr && text->value.is(ScriptValue::Kind::text);
            learn(context_, isText ? text->value.asText() : std::string());
            return;
        }
        default:
            return;
        }
    }
}

const Node* Parser::tryStatement() {
    static constexpr Ends kEnds{.word = "try", .isTry = true};
    auto* node = make<TryStatement>();
    advance();
    node->block = block(kEnds);
    if (atWords({Word::on, Word::error})) {
        advance(2);
        errorHandler(node);
    }
    endBlock(kEnds);
    return done(node);
}

// The variables behind `on error`, and what follows.
void Parser::errorHandler(TryStatement* node) {
    const Node* onlyNumber = nullptr;
    const auto isLabel = [&] {
        return at(Word::number) || at(Word::from) || at(Word::partial) || at(Word::to);
    };
    if (!atLineEnd() && !isLabel()) {
        const Token name = variableName();
        node->message = variable(name);
    }
    while (!atLineEnd()) {
        const Variable** place = at(Word::number)                         ? &node->number
                                 : at(Word::from)                         ? &node->from
                                 : at(Word::to)                           ? &node->to
                                 : atWords({Word::partial, Word::result}) ? &node->partialResult
                                                                          : nullptr;
        if (place == nullptr || *place != nullptr) {
            failBehind();
        }
        advance(place == &node->partialResult ? 2 : 1);
        if (place == &node->number && (at(Kind::number) || at(Kind::minus))) {
            onlyNumber = keyOperand();
            node->number = variable("error number");
            continue;
        }
        const Token name = variableName();
        *place = variable(name);
    }
    const Block* body = block({.word = "try", .isTry = false});
    node->onError = body;
    if (onlyNumber != nullptr) {
        node->onError = static_cast<const Block*>(onlyError(node, onlyNumber, body));
    }
}

// `on error number -128` catches that one only: any other goes on.
const Node* Parser::onlyError(TryStatement* node, const Node* number, const Block* body) {
    if (node->message == nullptr) {
        node->message = variable("error message");
    }
    auto* read = makeAt<Variable>(number->begin);
    names_.use(read, node->number->name);
    auto* condition = makeAt<Binary>(number->begin);
    condition->operation = BinaryOperator::notEqual;
    condition->left = read;
    condition->right = number;
    above(condition, number);
    auto* again = makeAt<ErrorStatement>(number->begin);
    auto* message = makeAt<Variable>(number->begin);
    names_.use(message, node->message->name);
    auto* number_ = makeAt<Variable>(number->begin);
    names_.use(number_, node->number->name);
    again->message = message;
    again->number = number_;
    auto* then = makeAt<Block>(number->begin);
    const Node* const thrown = again;
    then->statements = tree_.keep(std::span(&thrown, 1));
    auto* test = makeAt<IfStatement>(number->begin);
    const IfStatement::Branch branch{condition, then};
    test->branches = tree_.keep(std::span(&branch, 1));
    test->isOneLine = true;
    std::vector<const Node*> statements{test};
    statements.insert(statements.end(), body->statements.begin(), body->statements.end());
    auto* whole = makeAt<Block>(body->begin);
    whole->statements = tree_.keep(std::span<const Node* const>(statements));
    whole->end = body->end;
    return whole;
}

const Node* Parser::consideringStatement() {
    auto* node = make<ConsideringStatement>();
    node->isIgnoring = at(Word::ignoring);
    const Ends ends{.word = node->isIgnoring ? "ignoring" : "considering"};
    advance();
    std::uint8_t& first = node->isIgnoring ? node->ignored : node->considered;
    std::uint8_t& second = node->isIgnoring ? node->considered : node->ignored;
    first = attributes(node, node->isIgnoring);
    if (take(Word::but)) {
        node->isIgnoring ? expect(Word::considering, "considering")
                         : expect(Word::ignoring, "ignoring");
        second = attributes(node, !node->isIgnoring);
    }
    node->block = block(ends);
    endBlock(ends);
    return done(node);
}

// Texts' attributes between commas and `and`.
std::uint8_t Parser::attributes(ConsideringStatement* node, bool isIgnored) {
    struct Row {
        Term term;
        std::uint8_t bit;
    };
    static constexpr auto kRows = std::to_array<Row>({
        {Term::case_, Attention::kCase},
        {Term::diacriticals, Attention::kDiacriticals},
        {Term::hyphens, Attention::kHyphens},
        {Term::punctuation, Attention::kPunctuation},
        {Term::whiteSpace, Attention::kWhiteSpace},
        {Term::numericStrings, Attention::kNumericStrings},
        {Term::expansion, 0},
        {Term::applicationResponses, 0},
    });
    std::uint8_t bits = 0;
    do {
        const Match found = match();
        const auto row = std::ranges::find(kRows, found.constant, &Row::term);
        if (row == kRows.end()) {
            failExpected("application constant or consideration");
        }
        bits |= row->bit;
        if (row->term == Term::applicationResponses && isIgnored) {
            node->ignoresResponses = true;
        }
        advance(found.length);
    } while (take(Word::and_) || (take(Kind::comma) && (take(Word::and_) || true)));
    return bits;
}

// `with timeout of 5 seconds`.
const Node* Parser::withStatement() {
    static constexpr Ends kEnds{.word = "timeout"};
    auto* node = make<TimeoutStatement>();
    advance();
    if (!take(Word::timeout)) {
        failExpected("“timeout”");
    }
    take(Word::of);
    node->seconds = expression();
    if (!take(Word::seconds) && lowered(lexer_.textOf(token())) == "second") {
        advance();
    }
    node->block = block(kEnds);
    endBlock(kEnds);
    return done(node);
}

const Node* Parser::usingTerms() {
    static constexpr Ends kEnds{.word = "using terms from"};
    const std::uint32_t begin = token().begin;
    advance();
    expect(Word::terms, "terms");
    expect(Word::from, "from");
    const Node* application = reference();
    const Restore<Context> restore(context_, context_);
    learnTarget(application);
    // The block is a node of its own already.
    auto* whole = makeAt<Block>(begin);
    whole->terms = application;
    whole->statements = block(kEnds)->statements;
    endBlock(kEnds);
    return done(whole);
}

} // namespace qv::applescript
