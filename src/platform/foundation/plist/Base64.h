#pragma once

#include <string>
#include <string_view>

namespace qv::plist {

/// Characters outside the alphabet are skipped wherever they stand; a last group that is neither
/// whole nor padded is dropped.
[[nodiscard]] std::string decodeBase64(std::string_view text);

/// One line, padded.
[[nodiscard]] std::string encodeBase64(std::string_view bytes);

} // namespace qv::plist
