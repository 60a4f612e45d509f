#pragma once

#include "platform/foundation/values/Error.h"
#include "platform/foundation/values/Value.h"

#include <tl/expected.hpp>

#include <cstdint>
#include <string>
#include <vector>

namespace qv {

class ReplacementFile;
struct SigningIdentity;

/// The content of a signature, and the signer.
struct SigningRequest {
    std::string identifier;
    std::string team;                   ///< the one organisational unit of the signer's certificate
    std::uint32_t flags = 0;            ///< of code_flags, those that a code directory may hold
    std::uint32_t platform = 0;         ///< platform number
    Value info = Value::dictionary({}); ///< dictionary
    Value entitlements = Value::dictionary({}); ///< dictionary
    std::string certificatePath;                ///< the signer's certificate, PEM
    std::string keyPath; ///< its key, PEM without a password; nobody but the owner may read it
    /// Certificates up to the root, PEM; the root may be among them or not.
    std::vector<std::string> intermediatePaths;
    /// Lets a program that may be debugged be signed with a certificate for distribution. For
    /// development anchors only: a user who may debug a program speaks for it.
    bool allowDebuggableDistribution = false;
};

/// Signs programs: appends the trailer that StaticCode judges.
class CodeSigner {
public:
    /// Signs the ELF file at `path`, replacing a signature that it has. The file is replaced as a
    /// whole by one with the same owner and mode, once that has been judged good; a failure leaves
    /// it as it was. Extended attributes and hard links stay behind.
    ///
    /// Failures are in NSOSStatusErrorDomain with a number of codesign_status and the reason under
    /// NSDebugDescription.
    static tl::expected<void, Error> sign(const std::string& path, const SigningRequest& request);

    /// Appends the ELF file that is open as `program` to an empty file, signed by an identity in
    /// memory; the paths of the request are not used.
    static tl::expected<void, Error> sign(int program, const SigningRequest& request,
                                          const SigningIdentity& identity, ReplacementFile& into);
};

} // namespace qv
