#pragma once

#include "platform/foundation/os/FileBytes.h"
#include "platform/foundation/values/Error.h"
#include "platform/foundation/values/Value.h"
#include "platform/security/requirement/CodeSigningStatus.h"

#include <fmt/core.h>
#include <tl/expected.hpp>

#include <cstdint>
#include <string>
#include <utility>

namespace qv {

/// The reason why a signature is not accepted: a status of codesign_status and the reason in words,
/// with everything that comes from the program escaped.
struct SignatureFailure {
    std::int32_t status;
    std::string reason;
};

[[nodiscard]] inline tl::unexpected<SignatureFailure> signatureFailure(std::int32_t status,
                                                                       std::string reason) {
    return tl::unexpected<SignatureFailure>(SignatureFailure{status, std::move(reason)});
}

[[nodiscard]] inline tl::unexpected<SignatureFailure> invalidSignature(std::string reason) {
    return signatureFailure(codesign_status::kSignatureInvalid, std::move(reason));
}
/// The error for callers outside, in NSOSStatusErrorDomain, with the reason under
/// NSDebugDescription.
[[nodiscard]] inline Error errorOf(const SignatureFailure& failure) {
    return Error(
        error_domain::kOSStatus, failure.status,
        Value::dictionary({{error_key::kDebugDescription, Value::string(failure.reason)}}));
}
/// The program could not be read.
[[nodiscard]] inline tl::unexpected<SignatureFailure> unreadableProgram(int errorNumber) {
    return signatureFailure(codesign_status::kErrnoBase + errorNumber,
                            fmt::format("reading the program: {}", errnoText(errorNumber)));
}

} // namespace qv
