#pragma once

#include "platform/foundation/text/ComparisonResult.h"

#include <string_view>

namespace qv {

/// The order of versions, component by component between separators; an empty separator never
/// separates. Components that differ are split at blanks and compared as integers; where even these
/// are equal, the left one is the smaller one, whichever that is: this is not an ordering in the
/// mathematical sense. A single further component "0" counts for nothing, any other one makes the
/// longer version the newer. Allocates nothing.
[[nodiscard]] ComparisonResult compareVersions(std::string_view left, std::string_view right,
                                               std::string_view separator = ".") noexcept;

} // namespace qv
