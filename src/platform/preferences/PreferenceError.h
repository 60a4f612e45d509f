#pragma once

#include "platform/foundation/values/Error.h"

#include <string_view>

namespace qv::preferences {

/// Returns an error of NSPOSIXErrorDomain with the description "PLACE: CAUSE".
[[nodiscard]] Error failureAt(std::string_view place, int errorNumber, std::string_view cause);
/// The same with the errno's own text as cause.
[[nodiscard]] Error failureAt(std::string_view place, int errorNumber);
/// The same for what a reader or writer of property lists has refused.
[[nodiscard]] Error refusalAt(std::string_view place, const Error& refusal);

} // namespace qv::preferences
