#pragma once

#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace qv::applescript::world {

/// A program that runs.
struct RunningProcess {
    pid_t id = 0;
    pid_t parent = 0;
    std::string name;       ///< of its program, or of the script that it executes
    std::string executable; ///< the path that it was executed by; also if the file is gone since
};

/// The programs that run and that this process may look at, this one included; without those of
/// containers, which have another root.
[[nodiscard]] std::vector<RunningProcess> runningProcesses();

/// The real user of a process; none if it has ended.
[[nodiscard]] std::optional<uid_t> userOf(pid_t process);
/// The words that a process was called with; empty if it has ended.
[[nodiscard]] std::vector<std::string> argumentsOf(pid_t process);
/// The unit of an application that a process belongs to (`app-NAME@WORD.service`,
/// `app-NAME-PID.scope`), or empty.
[[nodiscard]] std::string applicationUnitOf(pid_t process);

} // namespace qv::applescript::world
