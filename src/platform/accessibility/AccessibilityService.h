#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace qv {

inline constexpr std::string_view kAXErrorDomain = "AXError";

/// The platform's values.
enum AXError : std::int32_t { // NOLINT(performance-enum-size): as wide as the platform's
    kAXErrorSuccess = 0,
    kAXErrorFailure = -25200,
    kAXErrorIllegalArgument = -25201,
    kAXErrorInvalidUIElement = -25202,
    kAXErrorInvalidUIElementObserver = -25203,
    kAXErrorCannotComplete = -25204,
    kAXErrorAttributeUnsupported = -25205,
    kAXErrorActionUnsupported = -25206,
    kAXErrorNotificationUnsupported = -25207,
    kAXErrorNotImplemented = -25208,
    kAXErrorNotificationAlreadyRegistered = -25209,
    kAXErrorNotificationNotRegistered = -25210,
    kAXErrorAPIDisabled = -25211,
    kAXErrorNoValue = -25212,
    kAXErrorParameterizedAttributeUnsupported = -25213,
    kAXErrorNotEnoughPrecision = -25214,
};

/// Grants programs the trust of accessibility: to see and to steer other programs.
class AccessibilityService {
public:
    AccessibilityService() = default;
    AccessibilityService(const AccessibilityService&) = delete;
    AccessibilityService& operator=(const AccessibilityService&) = delete;
    AccessibilityService(AccessibilityService&&) = delete;
    AccessibilityService& operator=(AccessibilityService&&) = delete;
    virtual ~AccessibilityService() = default;

    /// `path`: of an executable file; empty when it is not known. IllegalArgument: there is no such
    /// file, or it is none that could be executed; APIDisabled: only root may; CannotComplete: the
    /// grant could not be stored; Failure: anything else.
    virtual AXError makeProcessTrusted(const std::string& path) = 0;
};

} // namespace qv
