#pragma once

#include "tools/terminal/Result.h"

namespace qv::tools {

/// Reads the words of a command line and carries out the command that they name. Throws nothing but
/// what the command does.
Result parseAndRun(int count, const char* const* arguments);

} // namespace qv::tools
