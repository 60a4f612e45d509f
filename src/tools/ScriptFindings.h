#pragma once

#include "tools/ScriptSource.h"

#include <string>
#include <vector>

namespace qv::tools {

class Terminal;

/// The name of the check of comments that allow what nothing has found.
inline constexpr std::string_view kUnusedAllowance = "unused-allowance";

/// The mistakes in a script, without those that its comments or the caller allow.
struct ScriptFindings {
    std::vector<Finding> findings; ///< in the order of the steps
    std::size_t errors = 0;
    std::size_t warnings = 0;
    std::size_t allowed = 0;
};

/// `allowedRules`: names of checks whose findings do not count. Looks for tools and users on this
/// machine.
[[nodiscard]] ScriptFindings findingsOf(const ScriptSource& source,
                                        const std::vector<std::string>& allowedRules = {});

/// "error: step 3 (changeMode): REASON [RULE]".
[[nodiscard]] std::string findingText(const ScriptSource& source, const Finding& finding);

/// "2 errors and 1 warning".
[[nodiscard]] std::string countText(std::size_t errors, std::size_t warnings);

/// All of them with their places, the parts of texts that they mean, and what to do.
void showFindings(const ScriptSource& source, const ScriptFindings& findings, Terminal& out);

} // namespace qv::tools
