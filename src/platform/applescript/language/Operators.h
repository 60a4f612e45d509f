#pragma once

#include "platform/applescript/language/ScriptLexer.h"
#include "platform/applescript/language/Tree.h"

#include <cstdint>
#include <span>

namespace qv::applescript {

/// The strength with which operators bind, the loosest first.
enum class Level : std::uint8_t {
    disjunction,
    conjunction,
    negation,
    equality,
    comparison,
    coercion,
    concatenation,
    addition,
    multiplication,
    power,
    sign,
    reference,
};

struct OperatorPhrase {
    BinaryOperator operation = BinaryOperator::add;
    Level level = Level::reference;
    std::size_t length = 0; ///< tokens; 0: no operator is here
};

/// The operator that `tokens` begin with.
[[nodiscard]] OperatorPhrase operatorAt(std::span<const Token> tokens) noexcept;
[[nodiscard]] Level levelOf(BinaryOperator operation) noexcept;
/// The sign as the printer writes it.
[[nodiscard]] std::string_view signOf(BinaryOperator operation) noexcept;

} // namespace qv::applescript
