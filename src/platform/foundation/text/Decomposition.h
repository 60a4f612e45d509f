#pragma once

#include <string>
#include <string_view>

namespace qv {

/// The canonical decomposition (NFD) of a UTF-8 text, in time linear in its length, however many
/// marks combine with one character.
[[nodiscard]] std::string canonicallyDecomposed(std::string_view text);

} // namespace qv
