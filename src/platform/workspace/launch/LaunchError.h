#pragma once

#include "platform/foundation/values/Error.h"

#include <cstdint>
#include <string_view>

namespace qv {

/// Codes of NSOSStatusErrorDomain that launching gives.
namespace launch_error {
inline constexpr std::int64_t kUnknown = -10810; ///< it could not be started
inline constexpr std::int64_t kNotAnApplication = -10811;
inline constexpr std::int64_t kNoExecutable = -10827;
} // namespace launch_error

/// Makes an error with the path, the reason in words and, where there is one, the POSIX error
/// beneath.
[[nodiscard]] Error launchError(std::int64_t code, std::string_view path, std::string_view reason,
                                int errorNumber = 0);

} // namespace qv
