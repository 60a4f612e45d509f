#pragma once

#include "platform/foundation/values/ASCII.h"
#include "platform/predicate/language/Expression.h"

#include <cstdint>
#include <optional>
#include <string_view>

namespace qv::predicate {

/// The meaning of a word or sign, whichever of its spellings is used.
enum class Symbol : std::uint8_t {
    none, ///< an identifier, a literal
    disjunction,
    conjunction,
    negation,
    any,
    all,
    noneOf,
    equal, // the comparisons, in the order of Comparison
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
    assign,
    add, // arithmetic, in the order of Arithmetic
    subtract,
    multiply,
    divide,
    power,
    openParenthesis,
    closeParenthesis,
    openBracket,
    closeBracket,
    openBrace,
    closeBrace,
    comma,
    dot,
    trueConstant,
    falseConstant,
    null,
    self,
    first,
    last,
    size,
    cast,
    function,
    subquery,
    ternary,
    truePredicate,
    falsePredicate,
    unsupported, ///< reserved by the language, without a use here
    end,
};

/// The strength with which operators bind; the loosest first.
enum class Level : std::uint8_t {
    disjunction,
    conjunction,
    negation,
    comparison,
    assignment,
    sum,
    product,
    power,
    unary,
};

/// The level of a sign that stands between two operands; none for any other.
[[nodiscard]] std::optional<Level> infixLevel(Symbol symbol) noexcept;

/// The meaning of a word in any letter case; `Symbol::none` when it is not reserved.
[[nodiscard]] Symbol reservedWord(std::string_view word) noexcept;

struct Sign {
    std::string_view text;
    Symbol symbol = Symbol::none;
};
/// The longest sign that the text begins with; an empty one when there is none.
[[nodiscard]] Sign signAtStart(std::string_view text) noexcept;

// Comparisons and arithmetic operators are symbols of their own, in the same order.
[[nodiscard]] constexpr Comparison comparisonOf(Symbol symbol) noexcept {
    return static_cast<Comparison>(static_cast<int>(symbol) - static_cast<int>(Symbol::equal));
}
[[nodiscard]] constexpr Arithmetic arithmeticOf(Symbol symbol) noexcept {
    return static_cast<Arithmetic>(static_cast<int>(symbol) - static_cast<int>(Symbol::add));
}

// The spelling that is printed.
[[nodiscard]] std::string_view spelling(Comparison comparison) noexcept;
[[nodiscard]] std::string_view spelling(Arithmetic arithmetic) noexcept;
[[nodiscard]] std::string_view spelling(Quantifier quantifier) noexcept;
[[nodiscard]] Level levelOf(Arithmetic arithmetic) noexcept;

[[nodiscard]] constexpr bool isWordStart(char c) noexcept { return isLetter(c) || c == '_'; }
[[nodiscard]] constexpr bool isWordPart(char c) noexcept { return isWordStart(c) || isDigit(c); }

} // namespace qv::predicate
