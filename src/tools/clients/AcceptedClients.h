#pragma once

#include "codesign/ClientVerification.h"
#include "platform/security/guest/GuestConfiguration.h"
#include "platform/security/requirement/CodeSigningStatus.h"
#include "platform/security/requirement/Requirement.h"

#include <tl/expected.hpp>

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace qv::tools {

/// The clients that the service of this build accepts, as the machine is now.
struct AcceptedClients {
    static constexpr std::string_view kBuiltIn = "built in";

    /// The names: "built in" for the requirement that the service carries, which comes first; then
    /// those of the files of allowed clients.
    std::vector<std::string> names;
    std::vector<Requirement> requirements; ///< as many
    std::string reason;                    ///< the reason why none of the files counts; else empty
};
/// The error says that the requirement that this build carries does not compile.
[[nodiscard]] tl::expected<AcceptedClients, RequirementError> acceptedClients(
    const CodeSigningConfiguration& configuration = ClientVerification::configuration());

/// Flags of a running program, any of which satisfies the service (besides being debuggable).
inline constexpr std::uint32_t kHardAndKill = code_flags::kHard | code_flags::kKill;
inline constexpr std::array<std::uint32_t, 2> kSufficientFlags = {kHardAndKill,
                                                                  code_flags::kRuntime};

} // namespace qv::tools
