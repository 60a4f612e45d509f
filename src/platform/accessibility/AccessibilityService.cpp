#include "platform/accessibility/AccessibilityService.h"

#include "platform/foundation/log/Log.h"

#include <fmt/core.h>

#include <climits>

namespace qv {

Error accessibilityError(AXError code, std::string_view place, std::string_view cause) {
    const std::string text = fmt::format("{}: {}", log::foreign(place, PATH_MAX), cause);
    return {kAXErrorDomain, code,
            Value::dictionary({{error_key::kLocalizedDescription, Value::string(text)},
                               {error_key::kLocalizedFailureReason, Value::string(cause)}})};
}

} // namespace qv
