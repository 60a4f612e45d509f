#pragma once

#include "platform/foundation/os/Descriptor.h"

#include <string>

namespace qv {

// Both need a mounted /proc.

/// The program that this process executes, open for reading; nothing, and errno, otherwise.
[[nodiscard]] Descriptor openOwnProgram();

/// Its path; empty if it cannot be told.
[[nodiscard]] std::string ownProgramPath();

/// Executes another program in this process, with the words of its command line and its
/// environment. Returns the errno, or not at all.
[[nodiscard]] int executeInstead(const std::string& program);

} // namespace qv
