#pragma once

#include "platform/foundation/values/Error.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace qv {

inline constexpr std::string_view kAXErrorDomain = "AXError";

/// The codes of the platform that this service uses.
enum AXError : std::int32_t { // NOLINT(performance-enum-size): as wide as the platform's
    kAXErrorSuccess = 0,
    kAXErrorFailure = -25200,
    kAXErrorIllegalArgument = -25201,
    kAXErrorCannotComplete = -25204,
    kAXErrorAPIDisabled = -25211,
};

/// An error of kAXErrorDomain that names a place and what is wrong with it, which is its failure
/// reason, too.
[[nodiscard]] Error accessibilityError(AXError code, std::string_view place,
                                       std::string_view cause);

/// Grants programs the trust of accessibility: to see and to steer other programs.
class AccessibilityService {
public:
    AccessibilityService() = default;
    AccessibilityService(const AccessibilityService&) = delete;
    AccessibilityService& operator=(const AccessibilityService&) = delete;
    AccessibilityService(AccessibilityService&&) = delete;
    AccessibilityService& operator=(AccessibilityService&&) = delete;
    virtual ~AccessibilityService() = default;

    /// `path` names an executable file; empty when it is not known. IllegalArgument: there is no
    /// such file, or it could not be executed; APIDisabled: only root may; CannotComplete: the
    /// grant could not be stored; Failure: anything else.
    virtual AXError makeProcessTrusted(const std::string& path) = 0;
};

} // namespace qv
