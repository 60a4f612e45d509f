#pragma once

#include "platform/foundation/values/Error.h"

#include <cstddef>
#include <string>
#include <string_view>

namespace qv::plist {

/// The user-information key of the old-style reader's error beside the XML reader's.
inline constexpr std::string_view kOldStyleParsingError = "kCFPropertyListOldStyleParsingError";

struct TextPosition {
    std::size_t line = 1;
    std::size_t column = 1; ///< in characters
};

/// The line and column of a byte of UTF-8 text. Lines end with LF, CR or CR LF.
[[nodiscard]] TextPosition positionOf(std::string_view text, std::size_t offset);

/// The character at `offset` as a message shows it; "0x.." when it is not a visible one.
[[nodiscard]] std::string shownCharacter(std::string_view text, std::size_t offset);

/// A reader's refusal of text. `wording` is the platform's message with "{line}" in place of the
/// number, which the column follows; line and column end a message without "{line}".
[[nodiscard]] Error textRefusal(std::string_view text, std::size_t offset,
                                std::string_view wording);

/// Returns an error "WORDING at byte offset N".
[[nodiscard]] Error binaryRefusal(std::size_t offset, std::string_view wording);

/// The XML reader's error, with the old-style reader's attached.
[[nodiscard]] Error withOldStyleError(const Error& xml, const Error& oldStyle);

} // namespace qv::plist
