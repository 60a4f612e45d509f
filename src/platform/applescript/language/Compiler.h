#pragma once

#include "platform/applescript/language/Tree.h"
#include "platform/applescript/values/ScriptError.h"

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

namespace qv::applescript {

/// The tree of a source, UTF-8 with line ends of any kind. Throws a ScriptError with its range:
/// -2741 (expected A but found B), -2740 (A can't go after B), -2742, -2750 to -2752, -2754, -2755,
/// -2706 for expressions deeper than kDeepestExpression and for blocks, lists or parentheses nested
/// deeper than kDeepest.
[[nodiscard]] std::unique_ptr<Tree> compile(std::string_view source);

inline constexpr int kDeepest = 250;
/// Levels of an expression, with those of operators in a row: `1 + 1 + 1` has three.
inline constexpr int kDeepestExpression = 1000;
/// Nodes of a script, and tokens of a line: -108 beyond.
inline constexpr std::size_t kMostNodes = 4'000'000;

/// The source of a tree in its usual form, which compiles to the same tree.
[[nodiscard]] std::string print(const Tree& tree);

} // namespace qv::applescript
