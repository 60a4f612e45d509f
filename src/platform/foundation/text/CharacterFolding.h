#pragma once

namespace qv {

// What foldings of texts leave out of a character.

/// Accents, points and the like, but no voicing mark or virama, which make other letters.
[[nodiscard]] bool isDiacritic(char32_t character) noexcept;

/// The usual form of a half-width or full-width character; others as they are.
[[nodiscard]] char32_t usualWidth(char32_t character) noexcept;

} // namespace qv
