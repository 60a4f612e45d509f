#pragma once

#include "platform/foundation/values/Error.h"

#include <cstdint>
#include <string_view>

namespace qv {

/// An error of the code-signing services: NSOSStatusErrorDomain, the status (codesign_status) as
/// code, and under NSDebugDescription the reason in words. Foreign bytes in `reason` are escaped.
[[nodiscard]] Error codeSigningError(std::int32_t status, std::string_view reason);

/// The same for a system call that failed: 100000 + errno, "WHAT: TEXT OF THE ERRNO".
[[nodiscard]] Error codeSigningSystemError(std::string_view what, int errorNumber);

} // namespace qv
