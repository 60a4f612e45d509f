#include "platform/security/requirement/CodeSigningError.h"

#include "platform/foundation/log/Log.h"
#include "platform/security/requirement/CodeSigningStatus.h"

#include <fmt/core.h>

#include <cstring>

namespace qv {

Error codeSigningError(std::int32_t status, std::string_view reason) {
    constexpr std::size_t kLongestReason = 1024;
    return {error_domain::kOSStatus, status,
            Value::dictionary({{error_key::kDebugDescription,
                                Value::string(log::foreign(reason, kLongestReason))}})};
}

Error codeSigningSystemError(std::string_view what, int errorNumber) {
    const char* text = strerrordesc_np(errorNumber);
    return codeSigningError(codesign_status::kErrnoBase + errorNumber,
                            fmt::format("{}: {}", what, text == nullptr ? "unknown error" : text));
}

} // namespace qv
