#pragma once

#include "platform/foundation/text/StringCompareOptions.h"

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace qv {

/// A text as a search compares it, and which places of it are places of the text that it was.
struct FoldedText {
    struct Boundary {
        std::size_t source; ///< in units of the text
        std::size_t folded; ///< in `units`
    };
    std::u16string units;
    /// The offsets at which characters begin, and the end: nothing is found that begins or ends
    /// elsewhere. Empty when every unit is one.
    std::vector<Boundary> boundaries;
};

/// The text, canonically decomposed unless the search is literal; without case, accents and width
/// as the options ask. A character is a code point and the marks that combine with it, of which no
/// more than 30 count as one character.
[[nodiscard]] FoldedText foldedText(std::u16string_view text, StringCompareOptions options);

} // namespace qv
