#pragma once

#include "platform/foundation/values/Error.h"

#include <cstdint>
#include <string>

namespace qv::imager {

enum class Names : std::uint8_t { kept, composed };

/// Makes of what 7-Zip has written what a mount of the image would show: everything belongs to this
/// process's user; a link whose target begins with `prefix`, the path of the folder that 7-Zip puts
/// before absolute targets, has its own one again; and names are composed (NFC) if they are to be.
/// `folder` is open for reading.
[[nodiscard]] Error repairTree(int folder, const std::string& prefix, Names names);

} // namespace qv::imager
