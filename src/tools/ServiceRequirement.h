#pragma once

#include "platform/security/CodeSigningStatus.h"

#include <array>
#include <cstdint>
#include <string>

namespace qv::tools {

/// The requirement that the service of this build demands of its clients, from the same bundle
/// information list that it carries.
[[nodiscard]] std::string serviceRequirement();

/// Flags of a running program, any of which satisfies the service (besides being debuggable).
inline constexpr std::uint32_t kHardAndKill = code_flags::kHard | code_flags::kKill;
inline constexpr std::array<std::uint32_t, 2> kSufficientFlags = {kHardAndKill,
                                                                  code_flags::kRuntime};

} // namespace qv::tools
