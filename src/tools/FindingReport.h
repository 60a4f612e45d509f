#pragma once

#include "script/review/Finding.h"
#include "tools/ScriptSource.h"

#include <span>
#include <string>

namespace qv::tools {

/// "FILE:LINE:COLUMN: error: step 3 (index 2), "mode": REASON; MEND [RULE]", of which a script
/// without places lacks line and column.
[[nodiscard]] std::string findingLine(const ScriptSource& source, const Finding& finding);

/// The same as an array of dictionaries, for programs.
[[nodiscard]] Value findingsAsValue(const ScriptSource& source, std::span<const Finding> findings);

/// Tells the faults of a script on standard error, each with its line of the file.
void complainOfFaults(const ScriptSource& source);

/// What a command answers to a script that cannot be built: the faults on standard error, or with
/// `json` an object with "error", "exitStatus" and "findings" on standard output.
Result refuseFaultyScript(const ScriptSource& source, bool json);

} // namespace qv::tools
