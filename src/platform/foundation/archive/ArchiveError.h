#pragma once

#include "platform/foundation/values/Error.h"

#include <cstdint>
#include <string_view>

namespace qv {

/// Returns NSCocoaErrorDomain 4864 with the text as NSDebugDescription.
[[nodiscard]] Error archiveError(std::string_view what);
/// The same with "object N: " before it.
[[nodiscard]] Error archiveError(std::uint32_t object, std::string_view what);

} // namespace qv
