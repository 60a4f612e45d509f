#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace qv {

/// The most marks in a row in stream-safe text. To order more than that takes time by the square of
/// their number.
inline constexpr std::size_t kMostMarks = 30;

/// The canonical decomposition (NFD) of a UTF-8 text, in time linear in its length, however many
/// marks combine with one character.
[[nodiscard]] std::string canonicallyDecomposed(std::string_view text);

/// The canonical composition (NFC) of a short UTF-8 text, such as a file's name: the time is linear
/// only while marks are few.
[[nodiscard]] std::string canonicallyComposed(std::string_view text);

} // namespace qv
