#pragma once

#include "platform/foundation/os/Descriptor.h"

#include <tl/expected.hpp>

#include <string>

namespace qv {

/// Opens the folder of an absolute path (O_PATH where it cannot be read), having made it and those
/// on the way to it that are missing, as open to others as the process lets them be. Links follow
/// the rule of files/HeldItem.h. The error is an errno; folders that were made before stay.
[[nodiscard]] tl::expected<Descriptor, int> openOrMakeFolders(const std::string& path);

} // namespace qv
