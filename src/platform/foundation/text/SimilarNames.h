#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace qv {

/// The known names that a person may have meant by a word: those nearest to it, at most two letters
/// added, left out, exchanged or swapped with their neighbour, and fewer than half of the word.
[[nodiscard]] std::vector<std::string> similarNames(std::string_view word,
                                                    const std::vector<std::string>& known);

} // namespace qv
