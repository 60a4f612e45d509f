#pragma once

#include "platform/security/signature/SigningIdentity.h"

#include <string>

namespace qv {

/// A signer that no authority knows: a root and the certificate that it issued to the signer. Only
/// this object holds the signer's key; that of the root is gone, so it never issues another one.
struct OwnIdentity {
    SigningIdentity signer; ///< its certificate is for code signing, and does not expire
    std::string rootPEM;    ///< the root's certificate, which has to be an anchor

    /// Makes an identity with fresh keys on P-256. `team` is the organisational unit, `name` begins
    /// the common names. kInternalError if the library cannot make it.
    static tl::expected<OwnIdentity, SignatureFailure> make(const std::string& team,
                                                            const std::string& name);
};

} // namespace qv
