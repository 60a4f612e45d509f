#pragma once

#include "platform/foundation/values/Value.h"

#include <exception>
#include <string>

namespace qv {

/// A fault of the caller: a value of the wrong class, a tool that cannot be launched, an undefined
/// key. Not an error of the world outside, which is an Error.
class Exception : public std::exception {
public:
    Exception(std::string name, std::string reason, Value userInfo = {})
        : name_(std::move(name)), reason_(std::move(reason)), userInfo_(std::move(userInfo)) {}

    [[nodiscard]] const std::string& name() const noexcept { return name_; }
    [[nodiscard]] const std::string& reason() const noexcept { return reason_; }
    [[nodiscard]] const Value& userInfo() const noexcept { return userInfo_; }
    [[nodiscard]] const char* what() const noexcept override { return reason_.c_str(); }

private:
    std::string name_;
    std::string reason_;
    Value userInfo_;
};

namespace exception_name {
inline constexpr std::string_view kInvalidArgument = "NSInvalidArgumentException";
inline constexpr std::string_view kRange = "NSRangeException";
} // namespace exception_name

/// Ends a call on a receiver that has no such method, with the platform's reason:
/// "-[NSDate intValue]: unrecognized selector sent to instance".
[[noreturn]] void raiseUnrecognizedSelector(std::string_view className, std::string_view selector);

} // namespace qv
