#pragma once

#include "platform/accessibility/AccessibilityService.h"
#include "platform/foundation/values/Error.h"

#include <string>
#include <string_view>

namespace qv {

/// An error of kAXErrorDomain that names a place and what is wrong with it, which is its failure
/// reason, too.
[[nodiscard]] Error accessibilityError(AXError code, std::string_view place,
                                       std::string_view cause);

/// A place as errors show it: whole, on one line, nothing in it that steers a terminal.
[[nodiscard]] std::string shownPath(std::string_view path);

} // namespace qv
