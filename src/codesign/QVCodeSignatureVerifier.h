#pragma once

#include "codesign/ClientName.h"
#include "platform/foundation/values/Error.h"

#include <tl/expected.hpp>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <utility>

namespace qv {

struct AuditToken;
class CodeSigningServices;
class SecCode;

/// Decides whether a running process is acceptable: its dynamic status flags must satisfy a rule,
/// then its signature a requirement. Made for one verification, asked once; the services must live
/// as long. Never raises; every failure is an Error whose user information tells the method under
/// "origin" and the class under "src".
class QVCodeSignatureVerifier {
public:
    /// The requirement that any program of a team satisfies. `teamID` is not escaped.
    [[nodiscard]] static std::string codeSignatureRequirementWithTeamID(std::string_view teamID);

    /// `attributes`: a guest attribute dictionary. Looks the process up; a failure of that is told
    /// by `verifyRequirements`.
    QVCodeSignatureVerifier(const Value& attributes, std::string_view teamID,
                            std::uint32_t requiredCodeSignatureAttributes,
                            CodeSigningServices& services);
    QVCodeSignatureVerifier(pid_t pid, std::string_view teamID,
                            std::uint32_t requiredCodeSignatureAttributes,
                            CodeSigningServices& services);
    QVCodeSignatureVerifier(const AuditToken& auditToken, std::string_view teamID,
                            std::uint32_t requiredCodeSignatureAttributes,
                            CodeSigningServices& services);

    /// The same for a program that was looked up already; the error is that of the look-up.
    QVCodeSignatureVerifier(tl::expected<std::shared_ptr<const SecCode>, Error> guest,
                            std::string_view teamID, std::uint32_t requiredCodeSignatureAttributes,
                            CodeSigningServices& services);

    /// Returns success if the process is acceptable, else NSOSStatusErrorDomain with a status of
    /// the code-signing services, or "QVCodeSignatureVerifierDomain" 1: the flags are not enough.
    Error verifyRequirements() const;

    /// Whether verifyRequirements() would succeed with another requirement; logs nothing. A way to
    /// choose the requirement, not to judge the process.
    [[nodiscard]] bool satisfies(std::string_view text) const;

    /// Tells, whenever it is asked, whether the process still is the very program that was looked
    /// up. May outlive the verifier.
    [[nodiscard]] std::function<bool()> identityCheck() const;
    /// The names that the program is signed with; empty texts for those that are not there. The
    /// client's own name is the caller's to give.
    [[nodiscard]] ClientName signedName() const;
    /// The function that takes the lines of a verification; the system log, if not told otherwise.
    using Log = std::function<void(std::string_view)>;
    void setLog(Log log) { log_ = std::move(log); }

    [[nodiscard]] const std::string& codeSignatureRequirement() const noexcept {
        return _codeSignatureRequirement;
    }
    void setCodeSignatureRequirement(std::string codeSignatureRequirement) {
        _codeSignatureRequirement = std::move(codeSignatureRequirement);
    }
    [[nodiscard]] std::uint32_t requiredCodeSignatureAttributes() const noexcept {
        return _requiredCodeSignatureAttributes;
    }
    void setRequiredCodeSignatureAttributes(std::uint32_t attributes) noexcept {
        _requiredCodeSignatureAttributes = attributes;
    }
    /// Flags that do as well; 0: there are none.
    [[nodiscard]] std::uint32_t requiredCodeSignatureAttributesAlternative() const noexcept {
        return _requiredCodeSignatureAttributesAlternative;
    }
    void setRequiredCodeSignatureAttributesAlternative(std::uint32_t attributes) noexcept {
        _requiredCodeSignatureAttributesAlternative = attributes;
    }

    /// The rule on flags by itself: whether `status` would satisfy it.
    [[nodiscard]] bool fulfilsFlags(std::uint32_t status) const noexcept;

private:
    [[nodiscard]] tl::expected<std::uint32_t, std::int32_t> statusFlags() const;
    [[nodiscard]] Error checkFlags() const;
    [[nodiscard]] Error checkSignature() const;

    std::shared_ptr<const SecCode> _code;
    Error _error;
    std::uint32_t _requiredCodeSignatureAttributes;
    std::uint32_t _requiredCodeSignatureAttributesAlternative;
    std::string _codeSignatureRequirement;
    CodeSigningServices& services_;
    Log log_;
};

} // namespace qv
