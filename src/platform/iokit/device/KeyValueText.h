#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace qv {

using KeyValues = std::vector<std::pair<std::string, std::string>>;

/// The lines "KEY=value" of a device's file `uevent`; other lines, and those that are not UTF-8,
/// are left out.
[[nodiscard]] KeyValues parseUevent(std::string_view text);
/// The lines "E:KEY=value" of the device manager's file about a device.
[[nodiscard]] KeyValues parseUdevData(std::string_view text);

/// The last value of a key.
[[nodiscard]] std::optional<std::string_view> valueOf(const KeyValues& pairs, std::string_view key);

} // namespace qv
