#pragma once

#include <string>

namespace qv::examiner {

// What a process gives up for good before it looks at a stranger's bytes. Each function gives what
// could not be given up, in words; empty when everything was.

/// Root's identity where it has it, for that of `user`, a number; every privilege, also of what
/// it might execute; memory that others could look into; cores, more than a few descriptors.
[[nodiscard]] std::string dropPrivileges(unsigned user);

/// All system calls but those that it takes to wait for connections and to start and reap
/// processes like this one.
[[nodiscard]] std::string keepToServing();

/// All system calls but those that it takes to read open descriptors, to compute, and to answer on
/// one: no file can be opened, no process started or signalled, no socket made.
[[nodiscard]] std::string keepToExamining();

} // namespace qv::examiner
