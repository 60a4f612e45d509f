#pragma once

#include "platform/foundation/values/Error.h"

#include <cstdint>
#include <memory>
#include <string_view>

namespace qv {

class Requirement;

// Keys of a guest attribute dictionary: which running program is meant. An audit token decides
// where both stand.
inline constexpr std::string_view kSecGuestAttributePid = "pid";     ///< a number
inline constexpr std::string_view kSecGuestAttributeAudit = "audit"; ///< data, 32 bytes: AuditToken

/// Asks copySigningInformation for what can change while the program runs.
inline constexpr std::uint32_t kSecCSDynamicInformation = 8;

// Keys of the information dictionary. Those of the signature are missing when it is not intact.
inline constexpr std::string_view kSecCodeInfoStatus = "status"; ///< integer, code_flags; dynamic
inline constexpr std::string_view kSecCodeInfoIdentifier = "identifier"; ///< string
inline constexpr std::string_view kSecCodeInfoTeamIdentifier = "teamid"; ///< string
inline constexpr std::string_view kSecCodeInfoUnique = "unique";         ///< data: the cdhash
inline constexpr std::string_view kSecCodeInfoFlags = "flags";           ///< of the signature
inline constexpr std::string_view kSecCodeInfoPList = "info-plist";      ///< dictionary
inline constexpr std::string_view kSecCodeInfoEntitlementsDict = "entitlements-dict"; ///< same
/// string: the path as the kernel shows it, escaped; for people, never to be opened
inline constexpr std::string_view kSecCodeInfoMainExecutable = "main-executable";

/// A running program whose code identity was looked up. It stays bound to that very program: to no
/// later holder of its process number, and to nothing that the process executes later.
class SecCode {
public:
    SecCode() = default;
    SecCode(const SecCode&) = delete;
    SecCode& operator=(const SecCode&) = delete;
    SecCode(SecCode&&) = delete;
    SecCode& operator=(SecCode&&) = delete;
    virtual ~SecCode() = default;

    /// `SecCodeCopySigningInformation`: 0 and a dictionary, or a status (codesign_status) with
    /// `information` untouched. `flags`: 0 or kSecCSDynamicInformation.
    virtual std::int32_t copySigningInformation(std::uint32_t flags, Value* information) const = 0;

    /// `SecCodeCheckValidityWithErrors`: 0 when the program is what its signature says, still runs
    /// and satisfies `requirement` (none: any signature will do); else a status, and in `error` an
    /// NSOSStatusErrorDomain error with the reason in words. Both result parameters may be null.
    virtual std::int32_t checkValidityWithErrors(const Requirement* requirement,
                                                 Error* error) const = 0;

    /// Whether it is still the very program that was looked up: the process has neither ended nor
    /// executed anything since, and is shown to run the same file. Cheap: for every message.
    [[nodiscard]] virtual bool isUnchanged() const = 0;
};

/// The platform's code-signing services: what tells running programs and requirements from texts
/// and numbers. Statuses are codesign_status; a result parameter is untouched on failure.
class CodeSigningServices {
public:
    CodeSigningServices() = default;
    CodeSigningServices(const CodeSigningServices&) = delete;
    CodeSigningServices& operator=(const CodeSigningServices&) = delete;
    CodeSigningServices(CodeSigningServices&&) = delete;
    CodeSigningServices& operator=(CodeSigningServices&&) = delete;
    virtual ~CodeSigningServices() = default;

    /// `SecCodeCopyGuestWithAttributes`, `attributes` being a guest attribute dictionary.
    virtual std::int32_t copyGuestWithAttributes(const Value& attributes,
                                                 std::shared_ptr<const SecCode>* code) = 0;

    /// `SecRequirementCreateWithString`.
    virtual std::int32_t
    createRequirementWithString(std::string_view text,
                                std::shared_ptr<const Requirement>* requirement) = 0;
};

} // namespace qv
