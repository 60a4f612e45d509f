#pragma once

#include "script/review/Finding.h"
#include "tools/scripts/ScriptSource.h"

#include <span>
#include <string>

namespace qv::tools {

class Terminal;

/// The text "FILE:LINE:COLUMN: error: step 3 (changeMode): REASON [RULE]"; line and column are left
/// out where the place is not known.
[[nodiscard]] std::string findingText(const ScriptSource& source, const Finding& finding);

/// The same as an array of dictionaries, for programs.
[[nodiscard]] Value findingsAsValue(const ScriptSource& source, std::span<const Finding> findings);

/// Findings with the parts of rules that they mean, and what to do; of each rule the first hundred.
void showFindings(const ScriptSource& source, std::span<const Finding> findings, Terminal& out);

/// The text "2 errors and 1 warning".
[[nodiscard]] std::string countText(std::size_t errors, std::size_t warnings);

/// The answer of a command to a script that cannot be built: the faults on standard error, or with
/// `json` an object with "error", "exitStatus" and "findings" on standard output.
Result refuseFaultyScript(const ScriptSource& source, bool json);

/// Reads a script for a command that needs an array of steps. The error is what the command
/// returns: that of readScript, the answer above, or that the steps are not an array.
[[nodiscard]] tl::expected<ScriptSource, Result> readSteps(const std::string& file, bool json);

} // namespace qv::tools
