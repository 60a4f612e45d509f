#pragma once

#include "platform/foundation/values/Value.h"

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace qv {
struct PredicatePart;
} // namespace qv

namespace qv::predicate {

/// The letters behind an operator, `[cdnl]`.
struct Modifiers {
    bool caseInsensitive = false;
    bool diacriticInsensitive = false;
    bool normalized = false;      ///< compare as the text stands; overrides the two above
    bool localeSensitive = false; ///< order by collation; overridden by `normalized`
    /// Whether texts are folded before they are compared.
    [[nodiscard]] bool fold() const noexcept {
        return !normalized && (caseInsensitive || diacriticInsensitive);
    }
};

enum class Comparison : std::uint8_t {
    equal,
    notEqual,
    less,
    lessOrEqual,
    greater,
    greaterOrEqual,
    between,
    in,
    contains,
    beginsWith,
    endsWith,
    like,
    matches,
    utiConformsTo,
    utiEquals,
};

enum class Arithmetic : std::uint8_t { add, subtract, multiply, divide, power };

/// The number of elements of a collection on the left that have to pass.
enum class Quantifier : std::uint8_t { single, any, all, none };

enum class Position : std::uint8_t { subscript, first, last, size };

/// One node of a parsed predicate. The kind decides which members have a meaning.
struct Expression {
    enum class Kind : std::uint8_t {
        // Predicates:
        truth,       ///< `truth`
        negation,    ///< 1 operand
        conjunction, ///< 2 operands or more
        disjunction, ///< 2 operands or more
        comparison,  ///< 2 operands, `comparison`, `quantifier`, `modifiers`
        // Expressions:
        constant,  ///< `value`; the null object is nil
        aggregate, ///< operands; `value` is the array where all of them are constants
        self,
        keyPath,    ///< `value` is the path; of the evaluated object, or of 1 operand
        variable,   ///< `value` is the name
        assignment, ///< `value` is the name; 1 operand
        element,    ///< `position`; 1 operand, and the subscript where there is one
        arithmetic, ///< 2 operands, `arithmetic`
        minus,      ///< 1 operand
        function,   ///< `function`, the index of its row in the table; operands
        cast,       ///< 2 operands: a value, and the name of a class
        invocation, ///< 2 operands or more: an object, a selector, arguments
        ternary,    ///< 3 operands, the first a predicate
        subquery,   ///< `value` is the variable's name; 2 operands, the second a predicate
    };
    static constexpr std::uint32_t kNoValue = UINT32_MAX;

    Kind kind = Kind::truth;
    bool truth = false;
    bool singleKey = false; // a path without dots and operators
    Comparison comparison = Comparison::equal;
    Quantifier quantifier = Quantifier::single;
    Modifiers modifiers = {};
    Arithmetic arithmetic = Arithmetic::add;
    Position position = Position::subscript;
    std::uint8_t function = 0;
    std::uint32_t firstOperand = 0; // in the tree's list of operands
    std::uint32_t operandCount = 0;
    std::uint32_t value = kNoValue; // in the tree's list of values

    [[nodiscard]] bool isPredicate() const noexcept { return kind <= Kind::comparison; }
};

/// A parsed predicate as flat lists, no deeper than `kDeepestTree`. The last node is the outermost.
struct Tree {
    static constexpr std::size_t kDeepestTree = 1000;

    std::vector<Expression> nodes;
    std::vector<std::uint32_t> operands;
    std::vector<Value> values;

    [[nodiscard]] const Expression& root() const noexcept { return nodes.back(); }
    [[nodiscard]] const Expression& operand(const Expression& of, std::size_t index) const {
        return nodes[operands[of.firstOperand + index]];
    }
    [[nodiscard]] const Value& value(const Expression& of) const { return values[of.value]; }
    [[nodiscard]] std::string_view name(const Expression& of) const {
        return values[of.value].asString();
    }
};

/// The outcome for the node of the same index in an evaluation.
struct Outcome {
    std::size_t evaluations = 0;
    std::optional<Value> last; ///< none while it is evaluated
};
using Trace = std::vector<Outcome>;

// Defined in Printing.cpp:
[[nodiscard]] std::string formatOf(const Tree& tree);
[[nodiscard]] std::string dumpOf(const Tree& tree);
[[nodiscard]] std::vector<PredicatePart> partsOf(const Tree& tree, const Trace& trace);

} // namespace qv::predicate
