#pragma once

#include "platform/foundation/values/Value.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace qv {

/// Domain, code and user information of a failure. Shared and immutable, one pointer wide; an empty
/// one means success. Errors of the platform travel unchanged to whoever reports them.
class [[nodiscard]] Error {
public:
    Error() noexcept = default; ///< success
    /// `userInfo`: a dictionary, or the null object for none. Anything else throws an Exception.
    Error(std::string_view domain, std::int64_t code, const Value& userInfo = {});

    /// An error whose only user information is a localized description.
    static Error withDescription(std::string_view domain, std::int64_t code, std::string_view text);
    /// Makes an error of NSPOSIXErrorDomain with the errno as code and no user information.
    static Error posix(int errorNumber);

    /// Returns true when this is a failure.
    explicit operator bool() const noexcept { return !value_.isNull(); }

    // The rest needs a failure.
    [[nodiscard]] std::string_view domain() const noexcept;
    [[nodiscard]] std::int64_t code() const noexcept;
    [[nodiscard]] Value userInfo() const; ///< an empty dictionary when there is none

    /// The text `Error Domain=D Code=C "TEXT" UserInfo={k=v, k2=v2}`, for logs. Differs from the
    /// platform in one thing: no address stands before an underlying error's brace, since the texts
    /// of a root service leave it.
    [[nodiscard]] std::string description() const;
    /// A sentence for people: the localized description, else for a file operation or a launch one
    /// of the item and the cause, else one made of the failure reason, of the domain's own text, of
    /// the debug description, or of domain and code.
    [[nodiscard]] std::string localizedDescription() const;

    friend bool operator==(const Error& left, const Error& right) {
        return left.value_ == right.value_;
    }

private:
    friend class Value;
    explicit Error(Value value) noexcept : value_(std::move(value)) {}
    Value value_; // null object or kind error
};

namespace error_domain {
inline constexpr std::string_view kCocoa = "NSCocoaErrorDomain";
inline constexpr std::string_view kPOSIX = "NSPOSIXErrorDomain";
inline constexpr std::string_view kOSStatus = "NSOSStatusErrorDomain";
} // namespace error_domain

namespace error_key {
inline constexpr std::string_view kLocalizedDescription = "NSLocalizedDescription";
inline constexpr std::string_view kLocalizedFailureReason = "NSLocalizedFailureReason";
inline constexpr std::string_view kUnderlyingError = "NSUnderlyingError";
inline constexpr std::string_view kDebugDescription = "NSDebugDescription";
inline constexpr std::string_view kFilePath = "NSFilePath";
inline constexpr std::string_view kURL = "NSURL";
inline constexpr std::string_view kSourceFilePath = "NSSourceFilePathErrorKey";
inline constexpr std::string_view kDestinationFilePath = "NSDestinationFilePath";
/// An array of one word: Remove, Copy, Move, Trash, Launch.
inline constexpr std::string_view kUserStringVariant = "NSUserStringVariant";
} // namespace error_key

/// Codes of NSCocoaErrorDomain that this system makes.
namespace cocoa_error {
inline constexpr std::int64_t kFileNoSuchFile = 4;
inline constexpr std::int64_t kFileReadUnknown = 256;
inline constexpr std::int64_t kFileReadNoPermission = 257;
inline constexpr std::int64_t kFileReadInvalidFileName = 258;
inline constexpr std::int64_t kFileReadNoSuchFile = 260;
inline constexpr std::int64_t kFileReadUnsupportedScheme = 262;
inline constexpr std::int64_t kFileReadTooLarge = 263;
inline constexpr std::int64_t kFileWriteUnknown = 512;
inline constexpr std::int64_t kFileWriteNoPermission = 513;
inline constexpr std::int64_t kFileWriteInvalidFileName = 514;
inline constexpr std::int64_t kFileWriteFileExists = 516;
inline constexpr std::int64_t kFileWriteOutOfSpace = 640;
inline constexpr std::int64_t kFileWriteVolumeReadOnly = 642;
inline constexpr std::int64_t kFeatureUnsupported = 3328;
inline constexpr std::int64_t kPropertyListReadCorrupt = 3840;
inline constexpr std::int64_t kPropertyListWriteInvalid = 3852;
inline constexpr std::int64_t kCoderReadCorrupt = 4864;
} // namespace cocoa_error

} // namespace qv
