#include "platform/security/requirement/CodeSigningStatus.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace qv::codesign_status {

namespace {

struct Row {
    std::int32_t status;
    std::string_view meaning;
};

constexpr std::int32_t kLastErrno = kErrnoBase + 255;

// Every number that the platform's callers may meet, not only those that this system makes.
constexpr std::array kRows = {
    Row{kSuccess, "The code is what it claims to be."},
    Row{kUnimplemented, "The requirement asks for something that is not supported here."},
    Row{-67071, "The object is neither code nor a requirement."},
    Row{-67070, "The call does not allow these flags."},
    Row{kObjectRequired, "An object is missing where the call needs one."},
    Row{-67068, "The code is not on disk."},
    Row{kUnsupportedGuestAttributes,
        "The attributes name a process neither by its number nor by an audit token."},
    Row{kInvalidAttributeValues, "An attribute of the process has the wrong type or size."},
    Row{kNoSuchCode, "The process has ended, or is not the one that was meant."},
    Row{-67064, "The attributes fit more than one process."},
    Row{kGuestInvalid, "The running code is no longer valid."},
    Row{kUnsigned, "The code is not signed."},
    Row{kSignatureFailed, "The code or its signature has been modified."},
    Row{kSignatureNotVerifiable, "The code cannot be read to verify it."},
    Row{kSignatureUnsupported, "The signature is of an unknown type or version."},
    Row{kBadDictionaryFormat, "A property list of the signature is malformed."},
    Row{-67057, "The resources are not sealed."},
    Row{-67056, "The sealed resources are missing."},
    Row{-67055, "The sealed resources are not valid."},
    Row{-67054, "A sealed resource is missing or has been modified."},
    Row{-67053, "The rules for sealing resources are not valid."},
    Row{kReqInvalid, "The requirement is not valid, or nested too deep."},
    Row{-67051, "The requirement is of an unknown kind."},
    Row{kReqFailed, "The code does not satisfy the requirement."},
    Row{kBadObjectFormat, "The file is not an executable of a known format."},
    Row{kInternalError, "Something unexpected went wrong during verification."},
    Row{-67047, "The host rejects the code."},
    Row{-67046, "The process does not host code."},
    Row{kSignatureInvalid, "The format of the signature is not valid."},
    Row{-67037, "The operation does not apply to this code."},
    Row{-67036, "The signature is too large."},
    Row{kStaticCodeChanged, "The code on disk differs from the code that runs."},
    Row{-67030, "The information dictionary has been modified."},
    Row{-67029, "There is no main executable."},
    Row{kRegularFile, "The executable is not a regular file."},
    Row{-67010, "The main executable fails strict validation."},
    Row{kCancelled, "Verification was cancelled or took too long."},
    Row{-67005, "The platform number of the code is not valid."},
    Row{kUnsupportedDigestAlgorithm, "The signature uses an unsupported digest algorithm."},
    Row{-66998, "The team identifier is not a legal one."},
    Row{kBadTeamIdentifier, "The team of the code differs from the team of its signer."},
    Row{-66996, "The signer is not trusted."},
    Row{kInvalidEntitlements, "The entitlements are malformed."},
    Row{kCertificateExpired, "A certificate of the signer has expired."},
    Row{kCertificateRevoked, "A certificate of the signer has been revoked."},
};

} // namespace

std::string_view meaning(std::int32_t status) noexcept {
    if (status > kErrnoBase && status <= kLastErrno) {
        const char* description = ::strerrordesc_np(status - kErrnoBase);
        return description == nullptr ? std::string_view() : description;
    }
    const auto* row = std::ranges::find(kRows, status, &Row::status);
    return row == kRows.end() ? std::string_view() : row->meaning;
}

} // namespace qv::codesign_status
