#pragma once

#include "script/review/places/ScriptPlaces.h"

#include <optional>
#include <string_view>
#include <vector>

namespace qv {

/// A comment "lint: allow RULE: reason" of a script. The texts are parts of the script's text.
struct Allowance {
    std::optional<std::size_t> step; ///< none: the whole script
    std::string_view rule;
    std::string_view reason; ///< empty: none is given, so that it allows nothing
    std::size_t offset;      ///< of the comment
};

/// The allowances of a script, by step, those for the whole script first. A comment before the
/// first step is for the whole script; any other is for the step that it stands in, for the one
/// that has ended on its line, or else for the next one.
[[nodiscard]] std::vector<Allowance> allowancesIn(std::string_view text,
                                                  const ScriptPlaces& places);

} // namespace qv
