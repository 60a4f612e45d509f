#pragma once

#include "platform/applescript/language/Binding.h"
#include "platform/applescript/language/CommandForms.h"
#include "platform/applescript/language/Compiler.h"
#include "platform/applescript/language/Names.h"
#include "platform/applescript/language/Operators.h"
#include "platform/applescript/language/ScriptLexer.h"
#include "platform/applescript/language/Tree.h"

#include <algorithm>
#include <initializer_list>
#include <span>
#include <string>
#include <string_view>
#include <unordered_set>
#include <utility>
#include <vector>

namespace qv::applescript {

/// Reads a script by recursive descent, a logical line at a time. Once only.
class Parser {
public:
    /// Source and tree outlive the parser.
    Parser(std::string_view source, Tree& tree);
    /// Throws a ScriptError.
    void parse();

private:
    using Kind = Token::Kind;
    class Nesting;
    template <typename T> class Restore;

    /// The application whose words are known, and the one that is told.
    struct Context {
        bool knowsFinder = false;
        bool knowsSystemEvents = false;
        bool tellsOther = false; ///< an application without a dictionary here
    };
    /// The words that an expression leaves to something around it.
    struct Stops {
        bool atIn = false;
        bool atAs = false;
    };
    /// A part of a reference, with the place where its container belongs.
    struct Part {
        Node* node = nullptr;
        const Node** hole = nullptr;
        Node* owner = nullptr;   ///< of the hole
        bool isFiltered = false; ///< it may stand for several objects: `whose` can follow
    };
    /// The terms that the words from here on are, of one length.
    struct Match {
        std::size_t length = 0;
        Term command = Term::none;
        Term type = Term::none;
        Term property = Term::none;
        Term constant = Term::none;
        bool isPlural = false;
    };
    struct Ends {
        std::string_view word; ///< behind `end`
        bool isHandler = false;
        bool isIf = false;
        bool isTry = false;
    };

    // Tokens (Parser.cpp):
    [[nodiscard]] const Token& token(std::size_t ahead = 0) const noexcept {
        return line_[std::min(index_ + ahead, line_.size() - 1)];
    }
    [[nodiscard]] bool at(Word word, std::size_t ahead = 0) const noexcept {
        return token(ahead).word == word;
    }
    [[nodiscard]] bool at(Kind kind, std::size_t ahead = 0) const noexcept {
        return token(ahead).kind == kind;
    }
    [[nodiscard]] bool atLineEnd(std::size_t ahead = 0) const noexcept {
        return token(ahead).kind >= Kind::endOfLine;
    }
    [[nodiscard]] bool atName(std::size_t ahead = 0) const noexcept;
    [[nodiscard]] bool atWords(std::initializer_list<Word> words) const noexcept;
    bool take(Word word);
    bool take(Kind kind);
    void advance(std::size_t count = 1) noexcept { index_ += count; }
    void expect(Word word, std::string_view text);
    void expect(Kind kind, std::string_view text);
    void nextLine();
    void endLine();
    [[nodiscard]] std::string nameOf(const Token& token) const;
    [[nodiscard]] std::string describe(std::size_t index) const;
    [[noreturn]] void fail(std::int64_t number, std::string brief);
    [[noreturn]] void failExpected(std::string_view what);
    [[noreturn]] void failBehind();
    [[noreturn]] void failAsRepeated(std::string_view parameter);
    [[noreturn]] void failUnsupported();
    [[nodiscard]] bool isOperand(const Token& token) const noexcept;

    // Words (ParserWords.cpp):
    [[nodiscard]] bool knows(Dictionary dictionary) const noexcept;
    [[nodiscard]] bool fits(const Phrase& phrase, std::size_t index) const noexcept;
    [[nodiscard]] Match matchAt(std::size_t index) const;
    [[nodiscard]] Match match() const { return matchAt(index_); }
    /// The number of words of `label` that stand here.
    [[nodiscard]] std::size_t lengthOf(Term label) const noexcept;
    [[nodiscard]] Term typeName();
    static void learn(Context& context, std::string_view application);
    void learnLine();
    const Token& variableName();

    // Nodes:
    template <typename T> T* make();
    template <typename T> T* makeAt(std::uint32_t begin);
    template <typename T> T* done(T* node) const noexcept;
    /// Counts a child in; `nesting`: how many levels more of Node::nesting its source has there.
    void above(Node* parent, const Node* child, int nesting = 2);
    Literal* literal(ScriptValue value);
    Variable* variable(const Token& token);
    Variable* variable(std::string_view name);

    // Statements (Parser.cpp, ParserStatements.cpp, ParserBlocks.cpp, ParserHandlers.cpp):
    void findLabelledHandlers();
    void topLevel(std::vector<const Node*>& statements);
    const Node* statement();
    const Node* statementHere();
    const Node* simpleStatement();
    [[nodiscard]] bool isPhraseForOther(const ScriptError& error, std::size_t begin,
                                        std::size_t end) const noexcept;
    const Node* unknownPhrase(std::size_t begin, std::size_t end);
    const Node* headerPart(Word stop, Node* (Parser::*rule)());
    const Node* expressionStatement();
    const Node* setStatement();
    const Node* setClipboard();
    const Node* copyStatement();
    Node* target();
    void requireTarget(const Node* node, std::size_t index);
    const Node* errorStatement();
    const Node* returnStatement();
    const Node* exitStatement();
    void declare(bool isGlobal, bool isTop);
    const Block* block(const Ends& ends);
    const Block* oneStatement();
    void endBlock(const Ends& ends);
    const Node* ifStatement();
    void oneLineIf(IfStatement* node, std::vector<IfStatement::Branch>& branches);
    const Node* repeatStatement();
    void repeatWith(RepeatStatement* node);
    const Node* tellStatement();
    void learnTarget(const Node* target);
    const Node* tryStatement();
    void errorHandler(TryStatement* node);
    const Node* onlyError(TryStatement* node, const Node* number, const Block* body);
    const Node* consideringStatement();
    std::uint8_t attributes(ConsideringStatement* node, bool isIgnored);
    const Node* withStatement();
    const Node* usingTerms();
    void useStatement();
    void property();
    void handler(std::vector<const Node*>& statements);
    void handlerParameters(Handler& handler);
    void labelledParameters(Handler& handler);
    const Variable* parameter();
    std::string preposition();
    void endOfScript(std::vector<const Node*>& statements);

    // Expressions (ParserExpressions.cpp):
    Node* expression();
    Node* binary(Level least);
    Node* prefix(Level least);
    Node* operation(Node* left, const OperatorPhrase& phrase);
    Node* running(Node* left);
    Node* coercion(Node* left);
    std::span<const Term> types();
    Node* parenthesized();
    Node* listOrRecord();
    void expectListEnd();
    std::size_t keyLength() const;
    std::string key(std::size_t length);
    Node* record(std::uint32_t begin);
    Node* number();
    Node* text();

    // References (ParserReferences.cpp, ParserElements.cpp):
    Node* reference();
    void filter(std::span<const Part> parts);
    Part unit();
    Part part(bool isMember);
    Part listPart(bool isMember);
    Part wordPart(bool isMember);
    Part namePart(bool isMember);
    Part termPart(const Match& match, bool isMember);
    Part propertyPart(const Match& match, bool isPart);
    Node* constant(Term term, std::size_t length);
    Part referenceTo();
    Node* numberOf();
    Part typePart(const Match& match, bool isMember);
    Part ordinalPart(std::int64_t index);
    Part everyPart(Specifier::Form form);
    Part element(std::uint32_t begin, Term type, Specifier::Form form, const Node* key = nullptr);
    Part keyedElement(std::uint32_t begin, Term type);
    Part rangeFrom(std::uint32_t begin, Term type);
    Part ownedPart();
    Part handlerCall();
    Part labelledCall();
    Part property(std::uint32_t begin, Term term, std::string_view name = {});
    void fill(Part& part, const Node* container);
    [[nodiscard]] bool atKey() const;
    Node* keyOperand();
    Node* rangeEnd();
    Part filePath(const Part& file);
    Node* fileOrDate(std::uint32_t begin, Term type);
    Node* application(std::uint32_t begin);
    [[nodiscard]] bool atOf() const noexcept {
        return at(Word::of) || (at(Word::in) && !stops_.atIn);
    }

    // Commands (ParserCommands.cpp):
    Node* command(Term term, std::size_t length);
    Node* commandDirect(const CommandForm& form);
    Node* referenceDirect(const CommandForm& form);
    bool commandParameter(const CommandForm& form, std::vector<CommandNode::Parameter>& parameters);
    bool flags(const CommandForm& form, std::vector<CommandNode::Parameter>& parameters);
    void requireNew(std::span<const CommandNode::Parameter> parameters, Term label);
    const Node* parameterValue(const CommandForm& form, const CommandForm::Parameter& parameter);
    const Node* insertionPoint();
    Node* folder();
    Literal* typeLiteral();
    /// Whether a reserved word stands here that an object begins with.
    [[nodiscard]] bool atReserved() const noexcept;
    [[nodiscard]] const CommandForm::Parameter* labelHere(const CommandForm& form,
                                                          std::size_t& length) const;

    std::string_view source_;
    Tree& tree_;
    Lexer lexer_;
    Names names_;
    std::vector<Token> line_;
    std::size_t index_ = 0;
    Context context_{};
    Context lineWords_{}; // of applications that the line names
    Stops stops_{};
    int depth_ = 0;       // of blocks
    int expressions_ = 0; // of parentheses and the like
    int loops_ = 0;
    std::size_t lineNumber_ = 0;
    std::size_t nodes_ = 0;
    std::size_t failedAt_ = 0; // the token that the last error is about
    std::unordered_set<std::string> labelled_;
    std::unordered_set<std::string> handlerNames_;
    std::vector<std::size_t> handlerScopes_; // in Names, of the tree's handlers
    std::size_t runScope_ = 0;
};

/// Counts one more level of nesting as long as it lives.
class Parser::Nesting {
public:
    Nesting(Parser& parser, int& depth);
    Nesting(const Nesting&) = delete;
    Nesting(Nesting&&) = delete;
    Nesting& operator=(const Nesting&) = delete;
    Nesting& operator=(Nesting&&) = delete;
    ~Nesting() { --depth_; }

private:
    int& depth_;
};

/// Gives a variable back its value in the end.
template <typename T> class Parser::Restore {
public:
    Restore(T& place, T value) : place_(place), before_(std::exchange(place, value)) {}
    Restore(const Restore&) = delete;
    Restore(Restore&&) = delete;
    Restore& operator=(const Restore&) = delete;
    Restore& operator=(Restore&&) = delete;
    ~Restore() { place_ = before_; }

private:
    T& place_;
    T before_;
};

template <typename T> T* Parser::makeAt(std::uint32_t begin) {
    if (++nodes_ > kMostNodes) {
        fail(error_number::kOutOfMemory, "Out of memory.");
    }
    T* node = tree_.make<T>();
    node->begin = begin;
    node->end = begin;
    return node;
}

template <typename T> T* Parser::make() { return makeAt<T>(token().begin); }

template <typename T> T* Parser::done(T* node) const noexcept {
    node->end = index_ == 0 ? node->begin : std::max(node->begin, line_[index_ - 1].end);
    return node;
}

} // namespace qv::applescript
