#pragma once

#include "platform/foundation/values/Value.h"

#include <array>
#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace qv {

/// The facts about one certificate that a requirement can ask for. Plain data: the builder of the
/// chain fills it in, the requirement language only reads it.
struct CertificateFacts {
    std::array<std::uint8_t, 20> sha1{};   ///< of the DER form
    std::array<std::uint8_t, 32> sha256{}; ///< of the DER form
    /// The subject's components in their order: short name as the requirement language spells it
    /// (CN, OU, O, C, L, ST, STREET, D, UID, and for the rest the dotted OID), value as UTF-8.
    std::vector<std::pair<std::string, std::string>> subject;
    std::vector<std::string> extensionOIDs; ///< dotted
    std::vector<std::string> policyOIDs;    ///< dotted, from the certificate-policies extension
    /// Extensions whose value is a UTCTime or GeneralizedTime: dotted OID and the instant.
    std::vector<std::pair<std::string, Date>> timestamps;
    Date expires;              ///< the end of its term
    bool vendorRoot = false;   ///< an anchor that satisfies `anchor apple generic`
    bool platformRoot = false; ///< an anchor whose code may satisfy `anchor apple`
    bool trusted = false;      ///< marked trusted by the administrator
    bool revoked = false;

    [[nodiscard]] bool hasExpired(std::chrono::system_clock::time_point at) const {
        const std::chrono::duration<double> since1970 = at.time_since_epoch();
        return expires.secondsSinceReference + Date::kReference <= since1970.count();
    }
};

/// The statements of a signature about a program, once it has been found good.
struct CodeFacts {
    std::string identifier;
    std::string team;
    std::array<std::uint8_t, 20> cdhash{};
    std::uint32_t platform = 0;
    Value info = Value::dictionary({});         ///< dictionary
    Value entitlements = Value::dictionary({}); ///< dictionary
    std::vector<CertificateFacts> chain;        ///< leaf first, anchor last
};

} // namespace qv
