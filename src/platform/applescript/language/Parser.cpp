#include "platform/applescript/language/ScriptParser.h"

#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <utility>

namespace qv::applescript {

namespace {

std::string inQuotes(std::string_view text) { return fmt::format("“{}”", text); }

} // namespace

std::unique_ptr<Tree> compile(std::string_view source) {
    auto tree = std::make_unique<Tree>();
    Parser(source, *tree).parse();
    return tree;
}

Parser::Nesting::Nesting(Parser& parser, int& depth) : depth_(depth) {
    if (depth == kDeepest) {
        parser.fail(error_number::kStackOverflow, "Stack overflow.");
    }
    ++depth;
}

Parser::Parser(std::string_view source, Tree& tree)
    : source_(source), tree_(tree), lexer_(source), names_(tree) {}

void Parser::parse() {
    findLabelledHandlers();
    nextLine();
    std::vector<const Node*> statements;
    while (!at(Kind::endOfScript)) {
        topLevel(statements);
        endLine();
    }
    endOfScript(statements);
}

void Parser::topLevel(std::vector<const Node*>& statements) {
    switch (token().word) {
    case Word::on:
    case Word::to:
        return handler(statements);
    case Word::property:
    case Word::prop:
        return property();
    case Word::global:
        return declare(true, true);
    case Word::use:
        if (at(Word::applescript, 1) || at(Word::scripting, 1) || at(Word::framework, 1)) {
            return useStatement();
        }
        [[fallthrough]];
    default:
        if (const Node* node = statement(); node != nullptr) {
            if (tree_.run.isExplicit) {
                fail(error_number::kHandlerTwice, "The handler run is specified more than once.");
            }
            statements.push_back(node);
        }
    }
}

void Parser::endOfScript(std::vector<const Node*>& statements) {
    if (!tree_.run.isExplicit) {
        auto* body = makeAt<Block>(0);
        body->statements = tree_.keep(std::span<const Node* const>(statements));
        body->end = token().end;
        tree_.run.name = "run";
        tree_.run.writtenName = "run";
        tree_.run.body = body;
        tree_.run.range = body->range();
    }
    names_.finish();
    names_.fill(tree_.run, runScope_);
    for (std::size_t index = 0; index < tree_.handlers.size(); ++index) {
        names_.fill(tree_.handlers[index], handlerScopes_[index]);
    }
}

// Calls of handlers with labels read like phrases of the language, so their names must be known
// before the first call.
void Parser::findLabelledHandlers() {
    try {
        Lexer lexer(source_);
        std::vector<Token> line;
        do {
            lexer.line(line);
            const bool isHandler = line.front().word == Word::on || line.front().word == Word::to;
            if (isHandler && line.size() > 3 && line[2].kind == Kind::word) {
                labelled_.insert(lowered(nameOf(line[1])));
            }
        } while (line.back().kind != Kind::endOfScript);
    } catch (const ScriptError&) {
        // The line that it is about is read again.
    }
}

bool Parser::atName(std::size_t ahead) const noexcept {
    const Token& here = token(ahead);
    return here.kind == Kind::quotedName ||
           (here.kind == Kind::word && !Vocabulary::isReserved(here.word));
}

bool Parser::atWords(std::initializer_list<Word> words) const noexcept {
    std::size_t ahead = 0;
    return std::ranges::all_of(words, [&](Word word) { return at(word, ahead++); });
}

bool Parser::take(Word word) {
    if (!at(word)) {
        return false;
    }
    advance();
    return true;
}

bool Parser::take(Kind kind) {
    if (!at(kind)) {
        return false;
    }
    advance();
    return true;
}

void Parser::expect(Word word, std::string_view text) {
    if (!take(word)) {
        failExpected(inQuotes(text));
    }
}

void Parser::expect(Kind kind, std::string_view text) {
    if (!take(kind)) {
        failExpected(inQuotes(text));
    }
}

void Parser::nextLine() {
    index_ = 0;
    ++lineNumber_;
    lexer_.line(line_);
    learnLine();
}

void Parser::endLine() {
    if (!atLineEnd()) {
        failBehind();
    }
    nextLine();
}

std::string Parser::nameOf(const Token& token) const {
    std::string_view text = lexer_.textOf(token);
    if (token.kind == Kind::quotedName) {
        text = text.substr(1, text.size() - 2);
    }
    return std::string(text);
}

// The name of a token in an error text.
std::string Parser::describe(std::size_t index) const {
    const Token& here = line_[std::min(index, line_.size() - 1)];
    switch (here.kind) {
    case Kind::endOfLine:
        return "end of line";
    case Kind::endOfScript:
        return "end of script";
    case Kind::number:
    case Kind::ordinal:
        return "number";
    case Kind::text:
        return "“\"”";
    case Kind::quotedName:
        return "identifier";
    case Kind::unknown:
    case Kind::raw:
        return "unknown token";
    case Kind::word:
        break;
    default:
        return inQuotes(lexer_.textOf(here));
    }
    if (Vocabulary::isReserved(here.word)) {
        std::string words = lowered(lexer_.textOf(here));
        if (here.word == Word::end && index + 1 < line_.size() &&
            Vocabulary::isReserved(line_[index + 1].word)) {
            words += " " + lowered(lexer_.textOf(line_[index + 1]));
        }
        return inQuotes(words);
    }
    const Match found = matchAt(index);
    return found.command != Term::none    ? "command name"
           : found.type != Term::none     ? found.isPlural ? "plural class name" : "class name"
           : found.property != Term::none ? "property"
           : found.constant != Term::none ? "application constant or consideration"
                                          : "identifier";
}

void Parser::fail(std::int64_t number, std::string brief) {
    failedAt_ = std::min(index_, line_.size() - 1);
    const Token& here = token();
    const std::uint32_t end = here.kind == Kind::text        ? here.begin + 1
                              : here.kind >= Kind::endOfLine ? here.begin
                                                             : here.end;
    throw syntaxError(number, std::move(brief), here.begin, end);
}

void Parser::failExpected(std::string_view what) {
    fail(error_number::kSyntax, fmt::format("Expected {} but found {}.", what, describe(index_)));
}

bool Parser::isOperand(const Token& token) const noexcept {
    return (token.kind == Kind::word && !Vocabulary::isReserved(token.word)) ||
           (token.kind >= Kind::quotedName && token.kind <= Kind::text);
}

// A phrase is complete, and this token stands behind it.
void Parser::failAsRepeated(std::string_view parameter) {
    fail(error_number::kParameterTwice,
         fmt::format("The parameter {} is specified more than once.", parameter));
}

void Parser::failBehind() {
    const std::size_t behind = index_;
    while (take(Word::the)) {
    }
    const bool isBegin = isOperand(token()) || at(Kind::leftParenthesis) || at(Kind::leftBrace);
    const Token before = behind == 0 ? Token{} : line_[behind - 1];
    const bool isEnd = isOperand(before) || before.kind == Kind::rightParenthesis ||
                       before.kind == Kind::rightBrace;
    if (isBegin && isEnd && match().command == Term::none) {
        fail(error_number::kCannotFollow,
             fmt::format("A {} can’t go after this {}.", describe(index_), describe(behind - 1)));
    }
    failExpected("end of line");
}

void Parser::failUnsupported() { failExpected("expression"); }

// Nodes

void Parser::above(Node* parent, const Node* child, int nesting) {
    if (child == nullptr) {
        return;
    }
    const int depth = std::max<int>(parent->depth, child->depth + 1);
    const int levels = std::max<int>(parent->nesting, child->nesting + nesting);
    if (depth > kDeepestExpression || levels >= kDeepest) {
        fail(error_number::kStackOverflow, "Stack overflow.");
    }
    parent->depth = static_cast<std::uint16_t>(depth);
    parent->nesting = static_cast<std::uint8_t>(levels);
}

Literal* Parser::literal(ScriptValue value) {
    auto* node = make<Literal>();
    node->value = std::move(value);
    return node;
}

Variable* Parser::variable(std::string_view name) {
    auto* node = make<Variable>();
    names_.use(node, name);
    return node;
}

Variable* Parser::variable(const Token& token) {
    static constexpr std::size_t kLongestName = 255;
    if (token.size > kLongestName) {
        throw syntaxError(error_number::kNameTooLong, "The name or number is too long.",
                          token.begin, token.end);
    }
    auto* node = makeAt<Variable>(token.begin);
    node->end = token.end;
    names_.use(node, nameOf(token));
    return node;
}

} // namespace qv::applescript
