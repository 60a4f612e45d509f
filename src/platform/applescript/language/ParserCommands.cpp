#include "platform/applescript/language/ScriptParser.h"

#include <algorithm>
#include <array>

namespace qv::applescript {

namespace {

using ParameterKind = CommandForm::Kind;

} // namespace

// A command of `length` words with its parameters in any order.
Node* Parser::command(Term term, std::size_t length) {
    const Nesting nesting(*this, expressions_);
    const CommandForm& form = formOf(term);
    auto* node = make<CommandNode>();
    node->command = term;
    advance(length);
    node->direct = commandDirect(form);
    above(node, node->direct);
    std::vector<CommandNode::Parameter> parameters;
    while (commandParameter(form, parameters)) {
    }
    for (const CommandNode::Parameter& each : parameters) {
        above(node, each.value);
    }
    node->parameters = tree_.keep(std::span<const CommandNode::Parameter>(parameters));
    return done(node);
}

Node* Parser::commandDirect(const CommandForm& form) {
    std::size_t length = 0;
    const bool isLabel = labelHere(form, length) != nullptr;
    switch (form.direct) {
    case CommandForm::Direct::none:
        return nullptr;
    case CommandForm::Direct::optional:
        if (isLabel || !(isOperand(token()) || at(Kind::leftParenthesis) || at(Kind::leftBrace) ||
                         at(Kind::minus) || at(Kind::plus) || at(Kind::raw) || atReserved())) {
            return nullptr;
        }
        break;
    case CommandForm::Direct::reference:
        if (form.command == Term::count && !take(Word::of)) {
            take(Word::in);
        }
        return referenceDirect(form);
    case CommandForm::Direct::required:
        break;
    }
    const Stops stops{.atIn = form.has(Term::in), .atAs = form.has(Term::as)};
    const Restore<Stops> restore(stops_, stops);
    return form.command == Term::pathTo ? folder() : expression();
}

// `exists path as POSIX file` asks for the file, `count x as text` gives a text.
Node* Parser::referenceDirect(const CommandForm& form) {
    Node* node = reference();
    while (form.command == Term::exists && at(Word::as) && !stops_.atAs) {
        node = coercion(node);
    }
    return node;
}

bool Parser::atReserved() const noexcept {
    static constexpr std::array kBeginnings = {
        Word::the,   Word::my,      Word::its,    Word::it,     Word::me,     Word::every,
        Word::some,  Word::first,   Word::last,   Word::middle, Word::back,   Word::front,
        Word::ref,   Word::not_,    Word::second, Word::third,  Word::fourth, Word::fifth,
        Word::sixth, Word::seventh, Word::eighth, Word::ninth,  Word::tenth,  Word::return_,
    };
    const bool isPosition = (at(Word::end) || at(Word::beginning)) && at(Word::of, 1);
    return isPosition || std::ranges::find(kBeginnings, token().word) != kBeginnings.end();
}

// The direct object of `path to`: a folder by its name, or an object.
Node* Parser::folder() {
    take(Word::the);
    const Match found = match();
    for (const Phrase& phrase : Vocabulary::shared().phrasesOf(token().word)) {
        const Term term = phrase.info->term;
        const bool isFolder = phrase.info->kind == TermKind::property &&
                              phrase.info->dictionary != Dictionary::language;
        if (isFolder && fits(phrase, index_) && phrase.length >= found.length) {
            Literal* node = literal(ScriptValue::constant(term));
            advance(phrase.length);
            return done(node);
        }
    }
    return reference();
}

// The label that stands here.
const CommandForm::Parameter* Parser::labelHere(const CommandForm& form,
                                                std::size_t& length) const {
    const CommandForm::Parameter* longest = nullptr;
    for (const CommandForm::Parameter& each : form.parameters) {
        if (const std::size_t here = lengthOf(each.label); here > length) {
            length = here;
            longest = &each;
        }
    }
    return longest;
}

bool Parser::commandParameter(const CommandForm& form,
                              std::vector<CommandNode::Parameter>& parameters) {
    std::size_t length = 0;
    const CommandForm::Parameter* label = labelHere(form, length);
    if (label == nullptr) {
        if (form.command == Term::make && parameters.empty() && match().type != Term::none) {
            parameters.push_back({Term::newParameter, typeLiteral()});
            return true;
        }
        return (at(Word::with) || at(Word::without)) && flags(form, parameters);
    }
    requireNew(parameters, label->label);
    advance(length);
    parameters.push_back({label->label, parameterValue(form, *label)});
    return true;
}

void Parser::requireNew(std::span<const CommandNode::Parameter> parameters, Term label) {
    if (std::ranges::find(parameters, label, &CommandNode::Parameter::label) != parameters.end()) {
        failAsRepeated(wordsOf(label));
    }
}

// `with administrator privileges and hidden answer`, `without altering line endings`.
bool Parser::flags(const CommandForm& form, std::vector<CommandNode::Parameter>& parameters) {
    const std::size_t begin = index_;
    const bool isWith = at(Word::with);
    bool isFound = false;
    do {
        const std::size_t before = index_;
        advance();
        std::size_t length = 0;
        const CommandForm::Parameter* label = labelHere(form, length);
        if (label == nullptr || label->kind != ParameterKind::flag) {
            index_ = isFound ? before : begin;
            return isFound;
        }
        isFound = true;
        requireNew(parameters, label->label);
        Literal* value = literal(ScriptValue::boolean(isWith));
        advance(length);
        parameters.push_back({label->label, done(value)});
    } while (at(Word::and_) || at(Kind::comma));
    return true;
}

Literal* Parser::typeLiteral() {
    Literal* node = literal({});
    node->value = ScriptValue::type(typeName());
    return done(node);
}

const Node* Parser::parameterValue(const CommandForm& form,
                                   const CommandForm::Parameter& parameter) {
    if (parameter.kind == ParameterKind::type) {
        return typeLiteral();
    }
    const Stops stops{.atIn = form.has(Term::in) && parameter.label != Term::in,
                      .atAs = form.has(Term::as) && parameter.label != Term::as};
    const Restore<Stops> restore(stops_, stops);
    const bool isPlace = parameter.label == Term::at || parameter.label == Term::to;
    return isPlace ? insertionPoint() : expression();
}

// The place to which an object is made or moved: `end of x` and `end of folders of x` are x, and
// `end` alone is what is told.
const Node* Parser::insertionPoint() {
    const std::size_t the = at(Word::the) ? 1 : 0;
    if (!at(Word::end, the) && !at(Word::beginning, the)) {
        return expression();
    }
    advance(the + 1);
    const Node* place = take(Word::of) ? reference() : nullptr;
    if (place != nullptr && place->kind == NodeKind::element) {
        const auto& elements = static_cast<const Element&>(*place);
        const bool areAll = elements.form == Specifier::Form::every && elements.filter == nullptr;
        place = areAll ? elements.container : place;
    }
    return place != nullptr ? place : done(make<It>());
}

} // namespace qv::applescript
