#pragma once

namespace qv {

// The characters that foldings of texts leave out.

/// Returns true for accents, points and the like, but not for a voicing mark or virama, which make
/// other letters.
[[nodiscard]] bool isDiacritic(char32_t character) noexcept;

/// The usual form of a half-width or full-width character; others as they are.
[[nodiscard]] char32_t usualWidth(char32_t character) noexcept;

} // namespace qv
