#include "platform/applescript/language/ScriptParser.h"

#include <algorithm>
#include <array>
#include <numbers>
#include <utility>

namespace qv::applescript {

// `A of B of C`, and `whose` behind it, which filters A.
Node* Parser::reference() {
    Part first = unit();
    std::vector<Part> containers;
    while (atOf()) {
        Part& last = containers.empty() ? first : containers.back();
        if (last.hole == nullptr) {
            break;
        }
        advance();
        containers.push_back(unit());
    }
    for (std::size_t index = containers.size(); index > 0; --index) {
        Part& inner = index == 1 ? first : containers[index - 2];
        fill(inner, containers[index - 1].node);
    }
    if (at(Word::whose) || at(Word::where)) {
        containers.insert(containers.begin(), first);
        filter(containers);
    }
    return first.node;
}

// `whose` filters the first of the parts that may be several objects.
void Parser::filter(std::span<const Part> parts) {
    const auto filtered = std::ranges::find(parts, true, &Part::isFiltered);
    if (filtered == parts.end()) {
        return;
    }
    const Nesting nesting(*this, expressions_);
    auto* element = static_cast<Element*>(filtered->node);
    advance();
    const Restore<Stops> restore(stops_, {});
    element->filter = expression();
    above(element, element->filter);
    done(element);
    if (atOf() && parts.back().hole != nullptr && *parts.back().hole == nullptr) {
        advance();
        Part last = parts.back();
        fill(last, reference());
    }
    for (const Part& part : parts) {
        part.node->end = line_[index_ - 1].end;
        above(part.node, element == part.node ? nullptr : element, 1);
    }
}

// A part with what belongs to it: `X's Y`.
Parser::Part Parser::unit() {
    Part left = part(false);
    while (at(Kind::possessive)) {
        advance();
        Part member = part(true);
        if (member.hole == nullptr) {
            failExpected("property or element");
        }
        fill(member, left.node);
        left = {member.node, left.hole, left.owner, member.isFiltered};
    }
    return left;
}

// Puts a container into the place that waits for it.
void Parser::fill(Part& part, const Node* container) {
    *part.hole = container;
    part.owner->end = std::max(part.owner->end, container->end);
    part.node->end = std::max(part.node->end, container->end);
    const int nesting = isLoose(container, Level::reference) ? 1 : 0;
    above(part.owner, container, nesting);
    if (part.node != part.owner) {
        // The levels between the two count as well.
        Node deeper = *part.owner;
        deeper.depth = static_cast<std::uint16_t>(deeper.depth + part.node->depth);
        above(part.node, &deeper, 0);
    }
}

Parser::Part Parser::part(bool isMember) {
    switch (token().kind) {
    case Kind::number:
        return {number()};
    case Kind::ordinal: {
        std::int64_t index = 0;
        const std::string_view text = lexer_.textOf(token());
        for (const char c : text.substr(0, std::min(text.size() - 2, std::size_t{9}))) {
            index = index * 10 + (c - '0');
        }
        return ordinalPart(index);
    }
    case Kind::text:
        return {text()};
    case Kind::leftParenthesis:
        return {parenthesized()};
    case Kind::leftBrace:
        return listPart(isMember);
    case Kind::quotedName:
        return namePart(isMember);
    case Kind::word:
        return wordPart(isMember);
    default:
        failExpected("expression");
    }
}

// `{name, size} of x`; a list of anything but such parts belongs to nothing.
Parser::Part Parser::listPart(bool isMember) {
    Node* node = listOrRecord();
    if (node->kind != NodeKind::list || !(isMember || atOf())) {
        return {node};
    }
    auto* list = static_cast<ListNode*>(node);
    std::vector<const Node*> items;
    for (const Node* item : list->items) {
        const bool isPart =
            (item->kind == NodeKind::propertyOf || item->kind == NodeKind::element) &&
            containerOf(item) == nullptr && filterOf(item) == nullptr;
        if (item->kind == NodeKind::variable) {
            const std::string name = lowered(static_cast<const Variable*>(item)->name);
            Node* member = property(item->begin, Term::none, name).node;
            member->end = item->end;
            items.push_back(member);
        } else if (isPart && !isDelimiters(item)) {
            items.push_back(item);
        } else {
            return {node};
        }
    }
    if (items.empty()) {
        return {node};
    }
    list->items = tree_.keep(std::span<const Node* const>(items));
    return {list, &list->container, list};
}

Parser::Part Parser::wordPart(bool isMember) {
    static constexpr auto kOrdinals = std::to_array<std::pair<Word, int>>({
        {Word::first, 1},
        {Word::second, 2},
        {Word::third, 3},
        {Word::fourth, 4},
        {Word::fifth, 5},
        {Word::sixth, 6},
        {Word::seventh, 7},
        {Word::eighth, 8},
        {Word::ninth, 9},
        {Word::tenth, 10},
        {Word::last, -1},
        {Word::front, 1},
        {Word::back, -1},
    });
    const Word word = token().word;
    if (const auto* row = std::ranges::find(kOrdinals, word, &std::pair<Word, int>::first);
        row != kOrdinals.end()) {
        return ordinalPart(row->second);
    }
    switch (word) {
    case Word::every:
        return everyPart(Specifier::Form::every);
    case Word::some:
        return everyPart(Specifier::Form::some);
    case Word::middle:
        return everyPart(Specifier::Form::middle);
    case Word::it:
    case Word::me: {
        Node* node = word == Word::it ? static_cast<Node*>(make<It>()) : make<Me>();
        advance();
        return {done(node)};
    }
    case Word::my:
    case Word::its:
        return ownedPart();
    case Word::ref:
    case Word::a:
        if (word == Word::ref || at(Word::reference, 1) || at(Word::ref, 1)) {
            return referenceTo();
        }
        return namePart(isMember);
    case Word::applescript:
        if (!isMember) {
            auto* node = make<Me>();
            advance();
            return {done(node)};
        }
        return namePart(isMember);
    default:
        break;
    }
    const bool isPosition = word == Word::end || word == Word::beginning;
    if (const Match found = match();
        found.length != 0 && (!isPosition || isMember || at(Word::of, 1))) {
        return termPart(found, isMember);
    }
    if (take(Word::the)) {
        const Nesting nesting(*this, expressions_);
        return part(isMember);
    }
    if (Vocabulary::isReserved(word)) {
        failExpected("expression");
    }
    return namePart(isMember);
}

// `my x`, `its x`.
Parser::Part Parser::ownedPart() {
    const Nesting nesting(*this, expressions_);
    const std::uint32_t begin = token().begin;
    Node* owner = at(Word::my) ? static_cast<Node*>(make<Me>()) : make<It>();
    advance();
    done(owner);
    const bool isCall = atName() && at(Kind::leftParenthesis, 1);
    Part member = isCall ? handlerCall() : part(true);
    if (member.hole == nullptr) {
        failExpected("property or element");
    }
    fill(member, owner);
    member.node->begin = begin;
    return {member.node};
}

Parser::Part Parser::referenceTo() {
    const Nesting nesting(*this, expressions_);
    auto* node = make<ReferenceTo>();
    advance(at(Word::a) ? 2 : 1);
    expect(Word::to, "to");
    node->object = reference();
    above(node, node->object);
    return {done(node)};
}

Parser::Part Parser::namePart(bool isMember) {
    if (at(Kind::leftParenthesis, 1)) {
        return handlerCall();
    }
    const Token name = token();
    if (labelled_.contains(lowered(nameOf(name)))) {
        return labelledCall();
    }
    const bool isOf = at(Word::of, 1) || (at(Word::in, 1) && !stops_.atIn);
    if (!isMember && !isOf) {
        advance();
        return {variable(name)};
    }
    advance();
    return property(name.begin, Term::none, lowered(nameOf(name)));
}

Parser::Part Parser::property(std::uint32_t begin, Term term, std::string_view name) {
    auto* node = makeAt<PropertyOf>(begin);
    node->property = term;
    node->name = tree_.keep(name);
    return {done(node), &node->container, node};
}

Parser::Part Parser::handlerCall() {
    const Nesting nesting(*this, expressions_);
    auto* node = make<HandlerCall>();
    node->name = tree_.keep(lowered(nameOf(token())));
    advance();
    expect(Kind::leftParenthesis, "(");
    const Restore<Stops> restore(stops_, {});
    std::vector<const Node*> arguments;
    if (!at(Kind::rightParenthesis)) {
        do {
            arguments.push_back(expression());
            above(node, arguments.back());
        } while (take(Kind::comma));
    }
    expect(Kind::rightParenthesis, ")");
    node->arguments = tree_.keep(std::span<const Node* const>(arguments));
    return {done(node), &node->receiver, node};
}

// `f of x from y given a:1 with b without c`.
Parser::Part Parser::labelledCall() {
    const Nesting nesting(*this, expressions_);
    auto* node = make<LabelledCall>();
    node->name = tree_.keep(lowered(nameOf(token())));
    advance();
    std::vector<LabelledCall::Argument> arguments;
    const auto add = [&](std::string_view label, const Node* value) {
        arguments.push_back({tree_.keep(label), value});
        above(node, value);
    };
    const auto isNew = [&](const std::string& name) {
        if (std::ranges::find(arguments, name, &LabelledCall::Argument::label) != arguments.end()) {
            --index_; // at the label again
            failAsRepeated(name);
        }
        return !name.empty();
    };
    const auto label = [&] {
        if (!atName()) {
            failExpected("identifier");
        }
        advance();
        std::string name = lowered(nameOf(line_[index_ - 1]));
        isNew(name);
        return name;
    };
    if (at(Word::of) || at(Word::in)) {
        const std::string_view direct = at(Word::of) ? "of" : "in";
        advance();
        add(direct, expression());
    }
    while (true) {
        if (take(Word::given)) {
            do {
                const std::string name = label();
                expect(Kind::colon, ":");
                add(name, expression());
            } while (take(Kind::comma));
        } else if (at(Word::with) || at(Word::without)) {
            const bool isWith = at(Word::with);
            do {
                advance();
                Literal* value = literal(ScriptValue::boolean(isWith));
                add(label(), value);
            } while (at(Word::and_) || at(Kind::comma));
        } else if (const std::string name = preposition(); isNew(name)) {
            add(name, expression());
        } else {
            break;
        }
    }
    node->arguments = tree_.keep(std::span<const LabelledCall::Argument>(arguments));
    return {done(node), &node->receiver, node};
}

Parser::Part Parser::termPart(const Match& found, bool isMember) {
    if (found.command != Term::none && !isMember) {
        return {command(found.command, found.length)};
    }
    const bool isOf = at(Word::of, found.length) || (at(Word::in, found.length) && !stops_.atIn);
    const bool isPart = isMember || isOf;
    if (found.constant != Term::none && !(found.property != Term::none && isPart)) {
        return {constant(found.constant, found.length)};
    }
    if (found.type == Term::none) {
        const bool isFolder =
            found.property >= Term::applicationsFolder && found.property <= Term::utilitiesFolder;
        if (isFolder && !isPart && !knows(Dictionary::both)) {
            return {constant(found.property, found.length)};
        }
        return propertyPart(found, isPart);
    }
    return typePart(found, isMember);
}

Parser::Part Parser::propertyPart(const Match& found, bool isPart) {
    const std::uint32_t begin = token().begin;
    if (found.property == Term::result && !isPart) {
        auto* node = make<ResultNode>();
        advance();
        return {done(node)};
    }
    if (found.property == Term::none) {
        failExpected("property or element"); // a command
    }
    advance(found.length);
    return property(begin, found.property);
}

// Constants that stand for a text or a number are that.
Node* Parser::constant(Term term, std::size_t length) {
    struct Row {
        Term term;
        std::string_view text;
        double number;
    };
    static constexpr auto kRows = std::to_array<Row>({
        {Term::return_, "\r", 0},
        {Term::space, " ", 0},
        {Term::tab, "\t", 0},
        {Term::linefeed, "\n", 0},
        {Term::quote, "\"", 0},
        {Term::minutesConstant, "", 60},
        {Term::hoursConstant, "", 3600},
        {Term::daysConstant, "", 86400},
        {Term::weeksConstant, "", 604800},
    });
    ScriptValue value = ScriptValue::constant(term);
    if (const auto* row = std::ranges::find(kRows, term, &Row::term); row != kRows.end()) {
        value = row->text.empty() ? ScriptValue::integer(static_cast<std::int64_t>(row->number))
                                  : ScriptValue::text(std::string(row->text));
    } else if (term == Term::pi) {
        value = ScriptValue::real(std::numbers::pi);
    } else if (term == Term::true_ || term == Term::false_) {
        value = ScriptValue::boolean(term == Term::true_);
    }
    Literal* node = literal(std::move(value));
    advance(length);
    return done(node);
}

} // namespace qv::applescript
