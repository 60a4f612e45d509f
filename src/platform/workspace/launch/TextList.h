#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace qv {

// How a process that works for this one tells several texts at once, of any bytes.

[[nodiscard]] std::string encodedTexts(const std::vector<std::string>& texts);

/// None unless all of it is what `encodedTexts` gives.
[[nodiscard]] std::optional<std::vector<std::string>> decodedTexts(std::string_view encoding);

} // namespace qv
