#pragma once

#include "platform/applescript/values/Terms.h"

#include <cstdint>
#include <span>

namespace qv::applescript {

/// The form in which a command is written.
struct CommandForm {
    enum class Direct : std::uint8_t {
        none,
        optional,
        required,
        reference, ///< required, and without operators: `count x = 2` counts x
    };
    enum class Kind : std::uint8_t {
        expression,
        type, ///< the name of a class
        flag, ///< `with LABEL` and `without LABEL`, or an expression
    };
    struct Parameter {
        Term label;
        Kind kind = Kind::expression;
    };
    Term command;
    Direct direct;
    std::span<const Parameter> parameters;

    [[nodiscard]] bool has(Term label) const noexcept;
};

/// `command`: a term of that kind but Term::isRunning.
[[nodiscard]] const CommandForm& formOf(Term command) noexcept;

} // namespace qv::applescript
