#pragma once

#include "platform/applescript/values/ScriptValue.h"
#include "platform/foundation/text/TextRange.h"

#include <cstdint>
#include <memory>
#include <memory_resource>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace qv::applescript {

// The tree of a script. Nodes, their lists and their texts live in the Tree that owns them, as long
// as it does, and are never freed one by one. A node knows which part of the source it is; the
// parser decides the meaning of a name (a variable of the handler or of the script).

enum class NodeKind : std::uint8_t {
    // Expressions.
    literal,
    list,
    record,
    variable,
    it,
    me,
    result,
    unary,
    binary,
    coercion,
    propertyOf,
    element,
    fileObject,
    applicationObject,
    handlerCall,
    command,
    referenceTo,
    labelledCall,
    // Statements.
    expression,
    set,
    copy,
    ifElse,
    repeat,
    tell,
    tryBlock,
    error,
    returnValue,
    exitRepeat,
    considering,
    timeout,
    block,
    unknownPhrase,
};

struct Node {
    NodeKind kind;
    /// For an expression the levels of parentheses, lists, calls and the like in its source.
    std::uint8_t nesting = 0;
    /// For an expression the number of levels below it, at most kDeepestExpression.
    std::uint16_t depth = 0;
    /// The number of UTF-16 units of the source, below 4 Gi.
    std::uint32_t begin = 0;
    std::uint32_t end = 0;

    [[nodiscard]] Range range() const noexcept { return {begin, end - begin}; }

protected:
    explicit Node(NodeKind kind_) noexcept : kind(kind_) {}
};

using Nodes = std::span<const Node* const>;
struct Block;

// Expressions

/// A number, text, boolean, constant or class. The constants that stand for a text or a number
/// (`return`, `tab`, `space`, `linefeed`, `quote`, `pi`, `minutes`, `hours`, `days`, `weeks`) are
/// that text or number.
struct Literal : Node {
    static constexpr NodeKind kKind = NodeKind::literal;
    Literal() noexcept : Node(kKind) {}
    ScriptValue value;
};

struct ListNode : Node {
    static constexpr NodeKind kKind = NodeKind::list;
    ListNode() noexcept : Node(kKind) {}
    Nodes items;
    /// `{name, size} of x`: the object that the items are parts of; or null.
    const Node* container = nullptr;
};

struct RecordNode : Node {
    static constexpr NodeKind kKind = NodeKind::record;
    RecordNode() noexcept : Node(kKind) {}
    struct Field {
        std::string_view key; ///< as ScriptValue::record wants it
        const Node* value;
    };
    std::span<const Field> fields;
};

/// The scope in which a variable lives.
enum class Scope : std::uint8_t {
    handler, ///< `slot` of the frame of the running handler
    script,  ///< `slot` of the script: properties, globals, and those of the implicit run handler
};

struct Variable : Node {
    static constexpr NodeKind kKind = NodeKind::variable;
    Variable() noexcept : Node(kKind) {}
    std::string_view name; ///< as first written
    Scope scope = Scope::script;
    std::uint32_t slot = 0;
};

/// `it`: the target of the `tell` around, or the element that a filter looks at.
struct It : Node {
    static constexpr NodeKind kKind = NodeKind::it;
    It() noexcept : Node(kKind) {}
};
/// `me`, and `AppleScript` where properties of it are asked for (`AppleScript's version`).
struct Me : Node {
    static constexpr NodeKind kKind = NodeKind::me;
    Me() noexcept : Node(kKind) {}
};
/// `result`: of the statement before.
struct ResultNode : Node {
    static constexpr NodeKind kKind = NodeKind::result;
    ResultNode() noexcept : Node(kKind) {}
};

enum class UnaryOperator : std::uint8_t { negate, plus, logicalNot };

struct Unary : Node {
    static constexpr NodeKind kKind = NodeKind::unary;
    Unary() noexcept : Node(kKind) {}
    UnaryOperator operation = UnaryOperator::negate;
    const Node* operand = nullptr;
};

enum class BinaryOperator : std::uint8_t {
    add,
    subtract,
    multiply,
    divide,
    integerDivide,
    modulo,
    power,
    concatenate,
    equal,
    notEqual,
    less,
    lessOrEqual,
    greater,
    greaterOrEqual,
    startsWith,
    endsWith,
    contains,
    doesNotContain,
    isIn,
    isNotIn,
    logicalAnd,
    logicalOr, ///< evaluate the right side if the left one leaves it open
};

struct Binary : Node {
    static constexpr NodeKind kKind = NodeKind::binary;
    Binary() noexcept : Node(kKind) {}
    BinaryOperator operation = BinaryOperator::add;
    const Node* left = nullptr;
    const Node* right = nullptr;
};

/// `VALUE as CLASS`, also `as {text, list}`.
struct Coercion : Node {
    static constexpr NodeKind kKind = NodeKind::coercion;
    Coercion() noexcept : Node(kKind) {}
    const Node* value = nullptr;
    std::span<const Term> types;
};

/// `PROPERTY of CONTAINER`, `CONTAINER's PROPERTY`, `PROPERTY` alone (of `it`). A name that is not
/// a term is a key of a record, or with `me` as container a property of the script.
struct PropertyOf : Node {
    static constexpr NodeKind kKind = NodeKind::propertyOf;
    PropertyOf() noexcept : Node(kKind) {}
    Term property = Term::none;
    std::string_view name;           ///< in lower case; where `property` is none
    const Node* container = nullptr; ///< null: `it`
};

/// `CLASS …` of a container: `item 2 of x`, `every process`, `text 1 thru 3 of y`, `last word of
/// z`, `file "a"`, `processes whose name is "x"`, `items 2 thru -1`. A class alone before `of`
/// (`text of x`) is every one of it. `first item`, `last item` have the keys 1 and -1.
struct Element : Node {
    static constexpr NodeKind kKind = NodeKind::element;
    Element() noexcept : Node(kKind) {}
    Term type = Term::item;
    Specifier::Form form = Specifier::Form::index;
    /// Index, name, id or begin of a range. The expression behind the class is an index, or a name
    /// if its value is a text: `item x of y` (form index) may be either.
    const Node* key = nullptr;
    const Node* last = nullptr; ///< end of a range; the key's meaning is that of an index of `type`
                                ///< unless it is an Element itself (`from word 2 to word 4`)
    const Node* filter = nullptr;    ///< of `whose`: an expression in which `it` is the element
    const Node* container = nullptr; ///< null: `it`
};

/// `alias "Startup Disk:x"`, `file "…"`, `POSIX file "/x"`.
struct FileObject : Node {
    static constexpr NodeKind kKind = NodeKind::fileObject;
    FileObject() noexcept : Node(kKind) {}
    Term form = Term::posixFile;
    const Node* path = nullptr;
};

/// `application "X"`, `application id "org.x"`.
struct ApplicationObject : Node {
    static constexpr NodeKind kKind = NodeKind::applicationObject;
    ApplicationObject() noexcept : Node(kKind) {}
    bool byIdentifier = false;
    const Node* name = nullptr;
};

/// `f(a, b)`, `my f(a)`, `f(a) of x`: positional.
struct HandlerCall : Node {
    static constexpr NodeKind kKind = NodeKind::handlerCall;
    HandlerCall() noexcept : Node(kKind) {}
    std::string_view name; ///< in lower case
    Nodes arguments;
    const Node* receiver = nullptr; ///< null: the target of the `tell` around, else the script
};

/// `name of x given a:1, b:2`, `rotate from 1 to 2`, `f with verbose`: a handler with labels.
struct LabelledCall : Node {
    static constexpr NodeKind kKind = NodeKind::labelledCall;
    LabelledCall() noexcept : Node(kKind) {}
    struct Argument {
        std::string_view label; ///< in lower case: `from`, `of`, or the name behind `given`
        const Node* value;
    };
    std::string_view name;
    std::span<const Argument> arguments;
    const Node* receiver = nullptr;
};

/// A command of the tables, with its parameters.
struct CommandNode : Node {
    static constexpr NodeKind kKind = NodeKind::command;
    CommandNode() noexcept : Node(kKind) {}
    struct Parameter {
        Term label;
        const Node* value; ///< of `with x` and `without x` a literal
    };
    Term command = Term::none;
    const Node* direct = nullptr;
    std::span<const Parameter> parameters;
};

struct ReferenceTo : Node {
    static constexpr NodeKind kKind = NodeKind::referenceTo;
    ReferenceTo() noexcept : Node(kKind) {}
    const Node* object = nullptr;
};

// Statements

/// Its value becomes `result`.
struct ExpressionStatement : Node {
    static constexpr NodeKind kKind = NodeKind::expression;
    ExpressionStatement() noexcept : Node(kKind) {}
    const Node* expression = nullptr;
};

/// `set TARGET to VALUE`. A target is a variable, a property (also Term::end and Term::beginning,
/// of a list that grows by an item: `set end of x to 1`), an element or a list or record of those
/// (`set {a, b} to {1, 2}`).
struct SetStatement : Node {
    static constexpr NodeKind kKind = NodeKind::set;
    SetStatement() noexcept : Node(kKind) {}
    const Node* target = nullptr;
    const Node* value = nullptr;
};

struct CopyStatement : Node {
    static constexpr NodeKind kKind = NodeKind::copy;
    CopyStatement() noexcept : Node(kKind) {}
    const Node* value = nullptr;
    const Node* target = nullptr;
};

/// A statement of its own: `using terms from application "X"`.
struct Block : Node {
    static constexpr NodeKind kKind = NodeKind::block;
    Block() noexcept : Node(kKind) {}
    Nodes statements;
    const Node* terms = nullptr; ///< the object whose words the block knows; not evaluated; or null
};

struct IfStatement : Node {
    static constexpr NodeKind kKind = NodeKind::ifElse;
    IfStatement() noexcept : Node(kKind) {}
    struct Branch {
        const Node* condition;
        const Block* block;
    };
    std::span<const Branch> branches;
    const Block* otherwise = nullptr;
    bool isOneLine = false;
};

struct RepeatStatement : Node {
    static constexpr NodeKind kKind = NodeKind::repeat;
    RepeatStatement() noexcept : Node(kKind) {}
    enum class Form : std::uint8_t { forever, times, whileTrue, until, counting, in };
    Form form = Form::forever;
    const Variable* variable = nullptr; ///< counting, in
    const Node* first = nullptr;        ///< the count, the condition, the first number, the list
    const Node* last = nullptr;
    const Node* step = nullptr; ///< null: 1
    const Block* block = nullptr;
};

struct TellStatement : Node {
    static constexpr NodeKind kKind = NodeKind::tell;
    TellStatement() noexcept : Node(kKind) {}
    const Node* target = nullptr;
    const Block* block = nullptr;
    bool isOneLine = false;
};

struct TryStatement : Node {
    static constexpr NodeKind kKind = NodeKind::tryBlock;
    TryStatement() noexcept : Node(kKind) {}
    const Block* block = nullptr;
    // Variables, each null if the script does not ask for it.
    const Variable* message = nullptr;
    const Variable* number = nullptr;
    const Variable* from = nullptr;
    const Variable* partialResult = nullptr;
    const Variable* to = nullptr;
    const Block* onError = nullptr;
};

/// `error "text" number n from x partial result y to z`.
struct ErrorStatement : Node {
    static constexpr NodeKind kKind = NodeKind::error;
    ErrorStatement() noexcept : Node(kKind) {}
    const Node* message = nullptr;
    const Node* number = nullptr;
    const Node* from = nullptr;
    const Node* partialResult = nullptr;
    const Node* to = nullptr;
};

struct ReturnStatement : Node {
    static constexpr NodeKind kKind = NodeKind::returnValue;
    ReturnStatement() noexcept : Node(kKind) {}
    const Node* value = nullptr;
};

struct ExitRepeat : Node {
    static constexpr NodeKind kKind = NodeKind::exitRepeat;
    ExitRepeat() noexcept : Node(kKind) {}
};

/// The differences that a comparison of texts pays attention to; one bit each.
struct Attention {
    static constexpr std::uint8_t kCase = 1;
    static constexpr std::uint8_t kDiacriticals = 2;
    static constexpr std::uint8_t kHyphens = 4;
    static constexpr std::uint8_t kPunctuation = 8;
    static constexpr std::uint8_t kWhiteSpace = 16;
    static constexpr std::uint8_t kNumericStrings = 32; ///< "10" is more than "9"
    static constexpr std::uint8_t kUsual = kDiacriticals | kHyphens | kPunctuation | kWhiteSpace;
};

struct ConsideringStatement : Node {
    static constexpr NodeKind kKind = NodeKind::considering;
    ConsideringStatement() noexcept : Node(kKind) {}
    std::uint8_t considered = 0; ///< bits of Attention
    std::uint8_t ignored = 0;
    bool isIgnoring = false; ///< the word that the block begins with; the other may follow `but`
    bool ignoresResponses = false;
    const Block* block = nullptr;
};

struct TimeoutStatement : Node {
    static constexpr NodeKind kKind = NodeKind::timeout;
    TimeoutStatement() noexcept : Node(kKind) {}
    const Node* seconds = nullptr;
    const Block* block = nullptr;
};

/// Words told to an application that is not in the dictionaries here: an error when it is reached.
/// A statement, or as an expression what a block begins with: `if WORDS then`.
struct UnknownPhrase : Node {
    static constexpr NodeKind kKind = NodeKind::unknownPhrase;
    UnknownPhrase() noexcept : Node(kKind) {}
    std::string_view words;
};

/// A handler, or as the first one what the script itself does (its `run`).
struct Handler {
    std::string_view name; ///< in lower case; "run" for the script itself
    std::string_view writtenName;
    /// Positional: variables in order; `labels` is empty. With labels: one for each parameter, the
    /// direct one labelled `of` or `in`.
    std::vector<const Variable*> parameters;
    std::vector<std::string_view> labels;
    /// `on run {a, b}`: the parameters are items of the one argument.
    bool takesList = false;
    bool isExplicit = false; ///< `on run`: the script's own statements are those of a handler
    /// Its declarations with `global` and with `local`.
    std::vector<std::string_view> declaredGlobals;
    std::vector<std::string_view> declaredLocals;
    std::uint32_t slots = 0;             ///< variables of its own, the parameters first
    std::vector<std::string_view> names; ///< of the slots
    const Block* body = nullptr;
    Range range;
};

/// A script that compiled.
struct Tree {
    Tree() = default;
    Tree(const Tree&) = delete;
    Tree& operator=(const Tree&) = delete;
    Tree(Tree&&) = delete;
    Tree& operator=(Tree&&) = delete;
    ~Tree(); ///< lets go of the literals' values

    /// A node of the tree. Its texts and lists go through the functions below.
    template <typename T> T* make() {
        T* node = new (memory_.allocate(sizeof(T), alignof(T))) T();
        if constexpr (std::is_same_v<T, Literal>) {
            literals_.push_back(node);
        }
        return node;
    }
    [[nodiscard]] std::string_view keep(std::string_view text);
    template <typename T> [[nodiscard]] std::span<const T> keep(std::span<const T> list) {
        T* copy = static_cast<T*>(memory_.allocate(list.size_bytes(), alignof(T)));
        std::uninitialized_copy(list.begin(), list.end(), copy);
        return {copy, list.size()};
    }

    /// Properties of the script, in order, with the expressions that they begin with.
    struct Property {
        const Variable* variable;
        const Node* value;
    };
    std::vector<Property> properties;
    std::vector<std::string_view> globals; ///< the script's variables by slot
    std::vector<std::string_view> declaredGlobals;
    Handler run;                   ///< statements outside of handlers, or `on run`
    std::vector<Handler> handlers; ///< all others, in order; no name twice

private:
    std::pmr::monotonic_buffer_resource memory_;
    std::vector<Literal*> literals_;
};

} // namespace qv::applescript
