#pragma once

#include "tools/scripts/ScriptSource.h"

#include <string>
#include <vector>

namespace qv::tools {

/// The name of the check of comments that allow what nothing has found.
inline constexpr std::string_view kUnusedAllowance = "unused-allowance";

/// The mistakes in a script, without those that its comments or the caller allow.
struct ScriptFindings {
    std::vector<Finding> findings; ///< in the order of the steps
    std::size_t errors = 0;
    std::size_t warnings = 0;
    std::size_t allowed = 0;
};

/// `allowedRules` names checks whose findings do not count. Looks for tools and users on this
/// machine.
[[nodiscard]] ScriptFindings findingsOf(const ScriptSource& source,
                                        const std::vector<std::string>& allowedRules = {});

} // namespace qv::tools
