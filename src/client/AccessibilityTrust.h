#pragma once

#include <sys/types.h>

namespace qv {

// Whether programs were granted the trust of accessibility, to see and to steer other programs (a
// step of a script grants it, `qvcatalog trust` shows and revokes it). For software that offers
// such things, to ask before it serves a program. Needs no service and no root, starts nothing: the
// store is a file for everybody to read. Each call reads it anew, and if the program is in it, the
// program's whole file.

/// Whether a process executes a trusted program: the bytes that trust was granted to, at their
/// place. False, too, when that cannot be found out: only root can look at other users' processes
/// and read every program. Take the process from the kernel (SO_PEERCRED), not from what it says of
/// itself; and keep a pidfd of it where its number could be given away before the call returns.
[[nodiscard]] bool isProcessTrusted(pid_t process);

/// The same for the calling process.
[[nodiscard]] bool isThisProcessTrusted();

} // namespace qv
