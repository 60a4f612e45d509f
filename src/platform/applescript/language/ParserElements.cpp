#include "platform/applescript/language/ScriptParser.h"

#include <algorithm>
#include <utility>

namespace qv::applescript {

namespace {
using Form = Specifier::Form;
} // namespace

Parser::Part Parser::element(std::uint32_t begin, Term type, Specifier::Form form,
                             const Node* key) {
    auto* node = makeAt<Element>(begin);
    node->type = type;
    node->form = form;
    node->key = key;
    above(node, key);
    const bool isSeveral =
        form == Form::every || form == Form::some || form == Form::middle || form == Form::range;
    return {done(node), &node->container, node, isSeveral};
}

// `2nd item`, `last word`.
Parser::Part Parser::ordinalPart(std::int64_t index) {
    const std::uint32_t begin = token().begin;
    Literal* key = literal(ScriptValue::integer(index));
    advance();
    done(key);
    const Term type = typeName();
    Part made = element(begin, type, Form::index, key);
    made.isFiltered = true;
    return made;
}

// `every item`, `some item`, `middle item`; before `of` also a property.
Parser::Part Parser::everyPart(Specifier::Form form) {
    const std::uint32_t begin = token().begin;
    advance();
    const Match found = match();
    if (found.type == Term::none) {
        failExpected("class name");
    }
    if (form == Form::every && at(Word::from, found.length)) {
        advance(found.length);
        return rangeFrom(begin, found.type);
    }
    advance(found.length);
    return element(begin, found.type, form);
}

// Whether what follows a class says which one.
bool Parser::atKey() const {
    switch (token().kind) {
    case Kind::number:
    case Kind::text:
    case Kind::leftParenthesis:
    case Kind::quotedName:
        return true;
    case Kind::minus:
        return at(Kind::number, 1) || at(Kind::leftParenthesis, 1);
    case Kind::word: {
        const Match found = match();
        return !Vocabulary::isReserved(token().word) &&
               (found.length == 0 || found.property == Term::result) && !at(Kind::possessive, 1);
    }
    default:
        return false;
    }
}

Node* Parser::keyOperand() {
    switch (token().kind) {
    case Kind::number:
        return number();
    case Kind::text:
        return text();
    case Kind::leftParenthesis:
        return parenthesized();
    case Kind::minus: {
        const Nesting nesting(*this, expressions_);
        auto* node = make<Unary>();
        advance();
        node->operand = keyOperand();
        above(node, node->operand);
        return done(node);
    }
    default:
        break;
    }
    if (match().property == Term::result) {
        auto* node = make<ResultNode>();
        advance();
        return done(node);
    }
    if (!atName()) {
        failExpected("expression");
    }
    if (at(Kind::leftParenthesis, 1)) {
        return handlerCall().node;
    }
    advance();
    return variable(line_[index_ - 1]);
}

// The expression behind `thru`: `end` is the last one.
Node* Parser::rangeEnd() {
    if (!at(Word::end) && !at(Word::beginning)) {
        return keyOperand();
    }
    const bool isEnd = at(Word::end);
    auto* node = make<Literal>();
    node->value = ScriptValue::integer(1);
    advance();
    if (!isEnd) {
        return done(node);
    }
    auto* last = makeAt<Unary>(node->begin);
    last->operand = done(node);
    above(last, node);
    return done(last);
}

// `from word 1 to word 3`.
Parser::Part Parser::rangeFrom(std::uint32_t begin, Term type) {
    const Nesting nesting(*this, expressions_);
    advance();
    const auto boundary = [&](bool isFirst) -> const Node* {
        if (at(Word::beginning) || at(Word::end)) {
            return rangeEnd();
        }
        const bool isKey = (isOperand(token()) && !at(Kind::ordinal) && match().length == 0) ||
                           at(Kind::minus) || at(Kind::leftParenthesis) ||
                           match().property == Term::result;
        return isKey ? keyOperand() : isFirst ? reference() : part(false).node;
    };
    const Node* first = boundary(true);
    if (!at(Word::to) && !at(Word::thru) && !at(Word::through)) {
        failExpected("“to”");
    }
    advance();
    const Node* last = boundary(false);
    Part made = element(begin, type, Form::range, first);
    static_cast<Element*>(made.node)->last = last;
    above(made.node, last);
    return made;
}

// `item 2`, `items 2 thru 4`, `item named "x"`, `item id 5`.
Parser::Part Parser::keyedElement(std::uint32_t begin, Term type) {
    if (take(Word::named)) {
        return element(begin, type, Form::name, keyOperand());
    }
    if (take(Word::id)) {
        return element(begin, type, Form::id, at(Kind::leftBrace) ? listOrRecord() : keyOperand());
    }
    take(Word::index);
    const Node* key = at(Word::beginning) ? rangeEnd() : keyOperand();
    if (at(Word::thru) || at(Word::through)) {
        advance();
        const Node* last = rangeEnd();
        Part made = element(begin, type, Form::range, key);
        static_cast<Element*>(made.node)->last = last;
        above(made.node, last);
        return made;
    }
    const bool isName = key->kind == NodeKind::literal &&
                        static_cast<const Literal*>(key)->value.is(ScriptValue::Kind::text);
    return element(begin, type, isName ? Form::name : Form::index, key);
}

Parser::Part Parser::typePart(const Match& found, bool isMember) {
    const std::uint32_t begin = token().begin;
    const bool isOf = at(Word::of, found.length) || (at(Word::in, found.length) && !stops_.atIn);
    advance(found.length);
    const bool isNumberOf = found.type == Term::number && !found.isPlural && isOf && !isMember;
    if (isNumberOf) {
        index_ -= found.length;
        return {numberOf()};
    }
    const bool isKeyWord = at(Word::named) || at(Word::id) || at(Word::index);
    const bool isKey = (isKeyWord && !atLineEnd(1) && !at(Word::of, 1)) || atKey();
    if (isKey && !found.isPlural && !isMember) {
        if (Node* object = fileOrDate(begin, found.type); object != nullptr) {
            return {object};
        }
    }
    if (isKey) {
        const Part made = keyedElement(begin, found.type);
        const bool isPath = found.type == Term::file && !found.isPlural && !isMember && !atOf();
        return isPath ? filePath(made) : made;
    }
    if (at(Word::from) && (found.isPlural || found.type == Term::text)) {
        return rangeFrom(begin, found.type);
    }
    if (found.property != Term::none) {
        return property(begin, found.property);
    }
    if (found.isPlural || isOf || isMember) {
        return element(begin, found.type, Form::every);
    }
    auto* node = makeAt<Literal>(begin);
    node->value = ScriptValue::type(found.type);
    return {done(node)};
}

// `number of items in x` counts them.
Node* Parser::numberOf() {
    const Nesting nesting(*this, expressions_);
    auto* node = make<CommandNode>();
    advance(2);
    node->command = Term::count;
    node->direct = reference();
    above(node, node->direct);
    return done(node);
}

// A file that is in nothing, by anything but a number, is the one at that path.
Parser::Part Parser::filePath(const Part& file) {
    const auto* element = static_cast<const Element*>(file.node);
    const bool isNumber =
        element->key->kind == NodeKind::literal &&
        !static_cast<const Literal*>(element->key)->value.is(ScriptValue::Kind::text);
    if ((element->form != Form::name && element->form != Form::index) || isNumber) {
        return file;
    }
    auto* node = makeAt<FileObject>(element->begin);
    node->form = Term::file;
    node->path = element->key;
    above(node, node->path);
    return {done(node)};
}

// The classes with a meaning of their own where a key stands behind them; null for others.
Node* Parser::fileOrDate(std::uint32_t begin, Term type) {
    switch (type) {
    case Term::application:
        return application(begin);
    case Term::date: {
        static constexpr Term kDate = Term::date;
        auto* node = makeAt<Coercion>(begin);
        node->value = keyOperand();
        node->types = tree_.keep(std::span(&kDate, 1));
        above(node, node->value);
        return done(node);
    }
    case Term::alias:
    case Term::posixFile: {
        auto* node = makeAt<FileObject>(begin);
        node->form = type;
        node->path = keyOperand();
        above(node, node->path);
        return done(node);
    }
    default:
        return nullptr;
    }
}

Node* Parser::application(std::uint32_t begin) {
    auto* node = makeAt<ApplicationObject>(begin);
    node->byIdentifier = take(Word::id);
    if (!node->byIdentifier) {
        take(Word::named);
    }
    node->name = keyOperand();
    above(node, node->name);
    return done(node);
}

} // namespace qv::applescript
