#pragma once

#include "platform/security/guest/GuestConfiguration.h"
#include "platform/security/guest/GuestObservation.h"
#include "platform/security/guest/LaunchMarkCheck.h"
#include "platform/security/signature/StaticCode.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace qv {

/// The facts about the signature that the dynamic flags need.
struct SignatureFacts {
    bool present = false;       ///< there is one, whatever it is worth
    bool intact = false;        ///< mathematically good; the rest is empty without it
    bool digestMatches = false; ///< the bytes on disk are the signed ones
    std::uint32_t directoryFlags = 0;
    bool getTaskAllow = false;
    bool distributionMarker = false; ///< the signer's certificate is one for distribution
    bool platformRoot = false;       ///< the chain ends in an anchor for platform code
};

[[nodiscard]] SignatureFacts signatureFacts(const StaticCode& code);

/// The reason in words why one flag is set or not.
struct FlagFinding {
    std::string_view name;
    std::uint32_t bit = 0;
    bool set = false;
    bool unseen = false; ///< not set, but only for want of a connection that shows the launch mark
    std::string why;
    /// The change that would set it; empty: nothing is to be done, or nothing is known.
    std::string remedy;
};

struct GuestVerdict {
    std::uint32_t flags = 0; ///< code_flags
    /// The status that the running image adds to the judgement of the signature: 0, kGuestInvalid
    /// or kStaticCodeChanged.
    std::int32_t imageStatus = codesign_status::kGuestInvalid;
    std::string imageReason;
    std::vector<FlagFinding> findings; ///< one for each flag that can be
};

/// Whether the debuggable entitlement is signed in, and not with a certificate that rules it out.
[[nodiscard]] bool countsAsDebuggable(const SignatureFacts& signature,
                                      const CodeSigningConfiguration& configuration);

/// Judges a program that does not run: the flags that its signature asks for.
[[nodiscard]] std::vector<FlagFinding> judgeProgram(const SignatureFacts& signature);

/// The shortcoming that keeps HARD from a process that maps this; none: nothing does.
[[nodiscard]] std::optional<Shortcoming> missingForMapping(const MappedCode& code);

/// Judges facts; asks nobody anything. Without an intact signature every flag is off.
[[nodiscard]] GuestVerdict judgeGuest(const GuestObservation& observation,
                                      const SignatureFacts& signature,
                                      const CodeSigningConfiguration& configuration);

} // namespace qv
