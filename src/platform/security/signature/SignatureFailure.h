#pragma once

#include <tl/expected.hpp>

#include <cstdint>
#include <string>
#include <utility>

namespace qv {

/// Why a signature is not accepted: a status of codesign_status and the reason in words, with
/// everything that comes from the program escaped.
struct SignatureFailure {
    std::int32_t status;
    std::string reason;
};

[[nodiscard]] inline tl::unexpected<SignatureFailure> signatureFailure(std::int32_t status,
                                                                       std::string reason) {
    return tl::unexpected<SignatureFailure>(SignatureFailure{status, std::move(reason)});
}

} // namespace qv
