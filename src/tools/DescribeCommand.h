#pragma once

#include "tools/terminal/Result.h"

#include <string>

namespace qv::tools {

struct CommandDescription;

struct DescribeOptions {
    std::string format; ///< man, operations, bash, fish or zsh
    std::string date;   ///< of the manual page
};
/// Prints the manual page of the command itself, the operations for that of scripts, or a shell's
/// completion.
Result describe(const DescribeOptions& options, const CommandDescription& program);

} // namespace qv::tools
