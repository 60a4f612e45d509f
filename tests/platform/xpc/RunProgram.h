#pragma once

#include <string>
#include <vector>

namespace qv::xpc::test {

struct ProgramRun {
    int status = 0; ///< exit status; minus the signal that ended it; 99 for a sanitizer's report
    std::string output; ///< both of its outputs
};

/// Runs a program (absolute path, then its arguments) and waits for it.
ProgramRun runProgram(const std::vector<std::string>& command);

} // namespace qv::xpc::test
