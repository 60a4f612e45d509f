#pragma once

#include <cstdint>
#include <string_view>

namespace qv {

/// The platform's status numbers for code signing (domain NSOSStatusErrorDomain); 0 is success.
namespace codesign_status {
inline constexpr std::int32_t kSuccess = 0;
inline constexpr std::int32_t kErrnoBase = 100000; ///< plus errno: a system call failed on the way
inline constexpr std::int32_t kUnimplemented = -67072;
inline constexpr std::int32_t kObjectRequired = -67069;
inline constexpr std::int32_t kUnsupportedGuestAttributes = -67067;
inline constexpr std::int32_t kInvalidAttributeValues = -67066;
inline constexpr std::int32_t kNoSuchCode = -67065;
inline constexpr std::int32_t kGuestInvalid = -67063;
inline constexpr std::int32_t kUnsigned = -67062;
inline constexpr std::int32_t kSignatureFailed = -67061;
inline constexpr std::int32_t kSignatureNotVerifiable = -67060;
inline constexpr std::int32_t kSignatureUnsupported = -67059;
inline constexpr std::int32_t kBadDictionaryFormat = -67058;
inline constexpr std::int32_t kReqInvalid = -67052;
inline constexpr std::int32_t kReqFailed = -67050;
inline constexpr std::int32_t kBadObjectFormat = -67049;
inline constexpr std::int32_t kInternalError = -67048;
inline constexpr std::int32_t kSignatureInvalid = -67045;
inline constexpr std::int32_t kStaticCodeChanged = -67034;
inline constexpr std::int32_t kRegularFile = -67015;
inline constexpr std::int32_t kCancelled = -67006;
inline constexpr std::int32_t kUnsupportedDigestAlgorithm = -67000;
inline constexpr std::int32_t kBadTeamIdentifier = -66997;
inline constexpr std::int32_t kInvalidEntitlements = -66994;
inline constexpr std::int32_t kCertificateExpired = -2147409654;
inline constexpr std::int32_t kCertificateRevoked = -2147409652;

/// The meaning of a status, in a sentence for people; empty for an unknown number.
[[nodiscard]] std::string_view meaning(std::int32_t status) noexcept;
} // namespace codesign_status

/// Bits of the dynamic code status, as they stand under kSecCodeInfoStatus.
namespace code_flags {
inline constexpr std::uint32_t kValid = 0x1;
inline constexpr std::uint32_t kAdhoc = 0x2;
inline constexpr std::uint32_t kGetTaskAllow = 0x4;
inline constexpr std::uint32_t kHard = 0x100;
inline constexpr std::uint32_t kKill = 0x200;
inline constexpr std::uint32_t kCheckExpiration = 0x400;
inline constexpr std::uint32_t kRestrict = 0x800;
inline constexpr std::uint32_t kRequireLibraryValidation = 0x2000;
inline constexpr std::uint32_t kRuntime = 0x10000;
inline constexpr std::uint32_t kPlatformBinary = 0x4000000;
inline constexpr std::uint32_t kDebugged = 0x10000000;
inline constexpr std::uint32_t kSigned = 0x20000000;
} // namespace code_flags

} // namespace qv
