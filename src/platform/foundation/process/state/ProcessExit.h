#pragma once

#include <sys/types.h>

namespace qv {

/// Blocks until a process, anybody's, has ended; a zombie has. Returns at once for a number that is
/// not a process (0, negative ones, threads), for this process itself, whose end nobody would be
/// there to see, and when the end cannot be watched.
void waitForExitOfProcess(pid_t process);

} // namespace qv
