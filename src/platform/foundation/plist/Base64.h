#pragma once

#include <string>
#include <string_view>

namespace qv::plist {

/// Decodes as the platform does: characters outside the alphabet are skipped wherever they stand;
/// "=" is six zero bits, and one or two at the end of a group of four drop as many of its bytes; a
/// last group of fewer than four is dropped.
[[nodiscard]] std::string decodeBase64(std::string_view text);

/// Encodes to one line, padded.
[[nodiscard]] std::string encodeBase64(std::string_view bytes);

} // namespace qv::plist
