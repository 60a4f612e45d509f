#pragma once

#include "platform/applescript/language/Tree.h"
#include "platform/applescript/values/OutsideWorld.h"

#include <chrono>
#include <cstddef>
#include <cstdint>

namespace qv::applescript {

/// The bounds of a script. An error that a bound gives ends the script: `try` catches it only where
/// that says so.
struct Limits {
    std::uint64_t steps = 2'000'000'000;                    ///< statements and rounds: -1712
    std::chrono::milliseconds time = std::chrono::hours(1); ///< -1712
    std::size_t memory = std::size_t{512} << 20U;           ///< bytes of texts and lists: -108
    unsigned depth = 500; ///< handlers that call each other: -2706, caught
};

/// Runs a script: its properties get their values, then what it does is done. Gives its result.
/// Throws a ScriptError with the range of what failed.
ScriptValue execute(const Tree& tree, OutsideWorld& world, const Limits& limits = {});

/// A value as a script would write it, for error texts and results: {1, "a", missing value}. Cut
/// with "…" after about `most` bytes.
[[nodiscard]] std::string sourceText(const ScriptValue& value, OutsideWorld& world,
                                     std::size_t most = 4096);

} // namespace qv::applescript
