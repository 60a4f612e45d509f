#include "platform/applescript/language/ScriptParser.h"

#include <fmt/core.h>

#include <algorithm>
#include <array>

namespace qv::applescript {

// A statement, or null for a declaration. In what is told to an application whose words are not
// known here a phrase that is none of the language is kept as it is.
const Node* Parser::statement() {
    const std::size_t begin = index_;
    const std::size_t lineNumber = lineNumber_;
    try {
        const Node* node = statementHere();
        if (!atLineEnd() && !at(Word::else_)) {
            failBehind();
        }
        return node;
    } catch (const ScriptError& error) {
        const std::size_t end = line_.size() - 1;
        if (lineNumber != lineNumber_ || !isPhraseForOther(error, begin, end)) {
            throw;
        }
        return unknownPhrase(begin, end);
    }
}

const Node* Parser::statementHere() {
    const Nesting nesting(*this, depth_);
    switch (token().word) {
    case Word::if_:
        return ifStatement();
    case Word::repeat:
        return repeatStatement();
    case Word::tell:
        return tellStatement();
    case Word::try_:
        return tryStatement();
    case Word::considering:
    case Word::ignoring:
        return consideringStatement();
    case Word::with:
        return withStatement();
    case Word::using_:
        return usingTerms();
    case Word::global:
    case Word::local:
        declare(at(Word::global), names_.isAtScript());
        return nullptr;
    default:
        return simpleStatement();
    }
}

const Node* Parser::simpleStatement() {
    switch (token().word) {
    case Word::set:
        return setStatement();
    case Word::copy:
        return copyStatement();
    case Word::error:
        return errorStatement();
    case Word::return_:
        return returnStatement();
    case Word::exit:
        return exitStatement();
    case Word::script:
    case Word::continue_:
        failUnsupported();
    default:
        return expressionStatement();
    }
}

// Whether the error is one of words that the language does not know, and the line is whole: no
// parenthesis is open, and nothing that makes a block stands in it.
bool Parser::isPhraseForOther(const ScriptError& error, std::size_t begin,
                              std::size_t end) const noexcept {
    static constexpr std::array kOfTheLanguage = {
        Word::then,   Word::else_, Word::end,         Word::on,       Word::if_,
        Word::repeat, Word::try_,  Word::considering, Word::ignoring, Word::property,
        Word::global, Word::local, Word::return_,     Word::exit,     Word::script,
        Word::error,  Word::tell,  Word::continue_,
    };
    const Token& failed = line_[std::min(failedAt_, line_.size() - 1)];
    const bool isSyntax =
        error.number == error_number::kCannotFollow || error.number == error_number::kSyntax;
    const bool isWord = failed.kind <= Kind::text || failed.kind == Kind::leftParenthesis ||
                        failed.kind == Kind::leftBrace || failed.kind == Kind::possessive;
    if (!context_.tellsOther || !isSyntax || !isWord || begin == end) {
        return false;
    }
    int parentheses = 0;
    int braces = 0;
    for (std::size_t index = begin; index < end; ++index) {
        const Token& each = line_[index];
        parentheses += each.kind == Kind::leftParenthesis ? 1 : 0;
        parentheses -= each.kind == Kind::rightParenthesis ? 1 : 0;
        braces += each.kind == Kind::leftBrace ? 1 : 0;
        braces -= each.kind == Kind::rightBrace ? 1 : 0;
        const bool isScript = each.word == Word::script && index != begin; // `do script "x"`
        const bool isOther =
            each.kind != Kind::unknown && each.kind != Kind::raw &&
            (isScript || std::ranges::find(kOfTheLanguage, each.word) == kOfTheLanguage.end());
        if (parentheses < 0 || braces < 0 || !isOther) {
            return false;
        }
    }
    return parentheses == 0 && braces == 0;
}

const Node* Parser::unknownPhrase(std::size_t begin, std::size_t end) {
    auto* node = makeAt<UnknownPhrase>(line_[begin].begin);
    index_ = end;
    const Token& last = line_[end - 1];
    const std::size_t offset = line_[begin].offset;
    node->words = tree_.keep(source_.substr(offset, last.offset + last.size - offset));
    return done(node);
}

// The header of a block, up to `stop` or the end of the line; it may be a phrase for another
// application as well.
const Node* Parser::headerPart(Word stop, Node* (Parser::*rule)()) {
    const std::size_t begin = index_;
    try {
        const Node* node = (this->*rule)();
        if (!atLineEnd() && !at(stop)) {
            stop == Word::then && !isOperand(token()) ? failExpected("“then”, etc.") : failBehind();
        }
        return node;
    } catch (const ScriptError& error) {
        std::size_t end = begin;
        while (end < line_.size() - 1 && line_[end].word != stop) {
            ++end;
        }
        if (!isPhraseForOther(error, begin, end)) {
            throw;
        }
        return unknownPhrase(begin, end);
    }
}

const Node* Parser::expressionStatement() {
    auto* node = make<ExpressionStatement>();
    node->expression = expression();
    return done(node);
}

// `set x to y`; without `set`, words that a command begins with are names here.
Node* Parser::target() {
    take(Word::the);
    if (at(Word::to, 1) && atName() &&
        (at(Kind::quotedName) || Vocabulary::shared().phrasesOf(token().word).empty() ||
         match().property == Term::none)) {
        const Match found = match();
        if (found.length != 1 || (found.type == Term::none && found.constant == Term::none)) {
            advance();
            return variable(line_[index_ - 1]);
        }
    }
    const std::size_t index = index_;
    Node* node = reference();
    requireTarget(node, index);
    return node;
}

void Parser::requireTarget(const Node* node, std::size_t index) {
    const Nesting nesting(*this, expressions_);
    switch (node->kind) {
    case NodeKind::variable:
    case NodeKind::propertyOf:
    case NodeKind::element:
    case NodeKind::result:
    case NodeKind::it:
        return;
    case NodeKind::list:
        for (const Node* item : static_cast<const ListNode*>(node)->items) {
            requireTarget(item, index);
        }
        return;
    case NodeKind::record:
        for (const RecordNode::Field& field : static_cast<const RecordNode*>(node)->fields) {
            requireTarget(field.value, index);
        }
        return;
    default:
        index_ = index;
        failExpected("variable name or property");
    }
}

const Node* Parser::setStatement() {
    if (atWords({Word::set, Word::the, Word::clipboard, Word::to})) {
        return setClipboard();
    }
    if (at(Word::volume, 1) && !at(Word::to, 2)) {
        return expressionStatement();
    }
    auto* node = make<SetStatement>();
    advance();
    node->target = target();
    expect(Word::to, "to");
    node->value = expression();
    return done(node);
}

const Node* Parser::setClipboard() {
    auto* statement = make<ExpressionStatement>();
    auto* node = make<CommandNode>();
    node->command = Term::theClipboard;
    advance(4);
    const CommandNode::Parameter value = {Term::to, expression()};
    node->parameters = tree_.keep(std::span(&value, 1));
    above(node, value.value);
    statement->expression = done(node);
    return done(statement);
}

const Node* Parser::copyStatement() {
    auto* node = make<CopyStatement>();
    advance();
    node->value = expression();
    expect(Word::to, "to");
    const std::size_t index = index_;
    node->target = reference();
    requireTarget(node->target, index);
    return done(node);
}

// `error "text" number n from x partial result y to z`, in any order behind the text.
const Node* Parser::errorStatement() {
    auto* node = make<ErrorStatement>();
    advance();
    if (!atLineEnd() && !at(Word::number) && !at(Word::from) && !at(Word::partial) &&
        !at(Word::to) && !at(Word::else_)) {
        node->message = expression();
    }
    while (true) {
        const Node** place = nullptr;
        std::size_t length = 1;
        if (at(Word::number)) {
            place = &node->number;
        } else if (at(Word::from)) {
            place = &node->from;
        } else if (atWords({Word::partial, Word::result})) {
            place = &node->partialResult;
            length = 2;
        } else if (at(Word::to)) {
            place = &node->to;
        }
        if (place == nullptr || *place != nullptr) {
            return done(node);
        }
        advance(length);
        *place = expression();
    }
}

const Node* Parser::returnStatement() {
    auto* node = make<ReturnStatement>();
    advance();
    if (!atLineEnd() && !at(Word::else_)) {
        node->value = expression();
    }
    return done(node);
}

const Node* Parser::exitStatement() {
    auto* node = make<ExitRepeat>();
    if (loops_ == 0) {
        fail(error_number::kExitOutsideRepeat, "Exit statement was not in a repeat loop.");
    }
    advance();
    take(Word::repeat);
    return done(node);
}

// `global a, b` and `local a, b`.
void Parser::declare(bool isGlobal, bool isTop) {
    do {
        advance();
        const Token& name = variableName();
        const std::string text = nameOf(name);
        if (!isGlobal) {
            names_.addLocal(text, name);
        } else if (isTop) {
            names_.addScriptGlobal(text, name);
        } else {
            names_.addGlobal(text, name);
        }
    } while (at(Kind::comma));
}

} // namespace qv::applescript
