#pragma once

#include "script/review/places/TextEvents.h"

namespace qv {

/// The content of a string as a text writes it: without quotes, or without tags.
[[nodiscard]] std::string_view contentOfLeaf(std::string_view leaf, TextNotation notation) noexcept;

/// The place in `content`, which is written with escapes, of the byte `offset` of the string. The
/// content's end for an offset that passes the string.
[[nodiscard]] std::size_t writtenOffset(std::string_view content, TextNotation notation,
                                        std::size_t offset);
/// The bytes of the string that is written so.
[[nodiscard]] std::size_t lengthOfString(std::string_view content, TextNotation notation);

} // namespace qv
