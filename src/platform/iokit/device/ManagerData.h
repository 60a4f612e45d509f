#pragma once

#include "platform/iokit/device/KeyValueText.h"

#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace qv {

/// The properties that the device manager has added to a device: the pairs of its file in `folder`,
/// whose name comes from the device's number or interface index, asked for with `attribute`, or
/// from its subsystem and name. None without such a file.
[[nodiscard]] KeyValues
managerDataOf(const std::string& folder, std::string_view subsystem, std::string_view name,
              const std::function<std::optional<std::string>(std::string_view)>& attribute);

} // namespace qv
