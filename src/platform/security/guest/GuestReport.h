#pragma once

#include "platform/foundation/values/Error.h"
#include "platform/security/CodeFacts.h"

#include <string>
#include <vector>

namespace qv {

class GuestCode;
class Requirement;
class StaticCode;

// What a person wants to know who asks why a program is accepted or refused, as lines without
// newline. Everything that comes from outside is escaped.

/// Success, or the status and the conditions that decided against the code.
[[nodiscard]] Error checkRequirement(const Requirement& requirement, const CodeFacts& facts);

/// "STATUS (MEANING): REASON" of an error of the code-signing services.
[[nodiscard]] std::string explainCodeSigningError(const Error& error);

/// The signature of a program on disk; `requirement` may be null.
[[nodiscard]] std::vector<std::string> reportStaticCode(const StaticCode& code,
                                                        const Requirement* requirement);

/// A running program: its signature, each flag with what set or withheld it, and the outcome of
/// the validity check.
[[nodiscard]] std::vector<std::string> reportGuest(const GuestCode& code,
                                                   const Requirement* requirement);

} // namespace qv
