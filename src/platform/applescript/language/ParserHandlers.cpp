#include "platform/applescript/language/ScriptParser.h"

#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <utility>

namespace qv::applescript {

// The label of a parameter that stands here, or nothing.
std::string Parser::preposition() {
    for (const Preposition& row : prepositions()) {
        if (!at(row.words[0]) || (row.words[1] != Word::none && !at(row.words[1], 1))) {
            continue;
        }
        advance(row.words[1] == Word::none ? 1 : 2);
        return std::string(row.label);
    }
    return {};
}

void Parser::useStatement() {
    advance();
    if (take(Word::scripting)) {
        if (lowered(lexer_.textOf(token())) != "additions") {
            failExpected("“additions”");
        }
        advance();
        return;
    }
    if (!take(Word::applescript)) {
        failExpected("“AppleScript” or “scripting additions”");
    }
    if (take(Word::version)) {
        if (!at(Kind::text) && !at(Kind::number)) {
            failExpected("“\"”");
        }
        advance();
    }
}

void Parser::property() {
    advance();
    const Match found = match();
    if (!(found.length == 1 && found.property != Term::none)) {
        (void)variableName();
        --index_;
    }
    const Token name = token();
    auto* node = make<Variable>();
    advance();
    names_.addProperty(done(node), nameOf(name), name);
    expect(Kind::colon, ":");
    tree_.properties.push_back({node, expression()});
}

void Parser::handler(std::vector<const Node*>& statements) {
    static constexpr Ends kEnds{.word = {}, .isHandler = true};
    const std::uint32_t begin = token().begin;
    advance();
    if (!atName()) {
        failExpected("handler name");
    }
    const Token name = token();
    Handler made;
    made.writtenName = tree_.keep(nameOf(name));
    made.name = tree_.keep(lowered(made.writtenName));
    const bool isRun = made.name == "run";
    if (!handlerNames_.emplace(made.name).second || (isRun && !statements.empty())) {
        fail(error_number::kHandlerTwice,
             fmt::format("The handler {} is specified more than once.", made.writtenName));
    }
    advance();
    names_.openHandler();
    handlerParameters(made);
    made.body = block(kEnds);
    endBlock(kEnds);
    made.range = {begin, line_[index_ - 1].end - begin};
    const std::size_t scope = names_.close();
    if (isRun) {
        made.isExplicit = true;
        tree_.run = std::move(made);
        runScope_ = scope;
        return;
    }
    handlerScopes_.push_back(scope);
    tree_.handlers.push_back(std::move(made));
}

const Variable* Parser::parameter() {
    const Token name = variableName();
    auto* node = makeAt<Variable>(name.begin);
    node->end = name.end;
    names_.addParameter(node, nameOf(name), name);
    return node;
}

void Parser::handlerParameters(Handler& handler) {
    const bool isEvent = isEventName(handler.name);
    const Kind closing = at(Kind::leftBrace) ? Kind::rightBrace : Kind::rightParenthesis;
    if (take(Kind::leftParenthesis) || (isEvent && take(Kind::leftBrace))) {
        handler.takesList = closing == Kind::rightBrace;
        if (take(closing)) {
            return;
        }
        do {
            handler.parameters.push_back(parameter());
        } while (take(Kind::comma));
        expect(closing, closing == Kind::rightBrace ? "}" : ")");
        return;
    }
    if (isEvent) {
        if (!atLineEnd()) {
            handler.parameters.push_back(parameter());
        }
        return;
    }
    labelledParameters(handler);
}

void Parser::labelledParameters(Handler& handler) {
    const auto add = [&](std::string_view label) {
        handler.labels.push_back(tree_.keep(label));
        handler.parameters.push_back(parameter());
    };
    if (at(Word::of) || at(Word::in)) {
        const std::string_view label = at(Word::of) ? "of" : "in";
        advance();
        add(label);
    }
    for (std::string label = preposition(); !label.empty(); label = preposition()) {
        add(label);
    }
    if (take(Word::given)) {
        do {
            if (!atName()) {
                failExpected("identifier");
            }
            const std::string label = lowered(nameOf(token()));
            advance();
            expect(Kind::colon, ":");
            add(label);
        } while (take(Kind::comma));
    }
    if (handler.labels.empty()) {
        failExpected("“(”");
    }
}

} // namespace qv::applescript
