#pragma once

#include <string>
#include <sys/types.h>
#include <vector>

namespace qv {

// Functions by which a process gives up rights for good before it works for somebody else or looks
// at a stranger's bytes. Each function gives what could not be given up, in words; empty when
// everything was.

/// Gives up every identity of root's for that of a user; with the saved IDs, so that nothing that
/// happens later takes one back. A user other than root has no capability then.
[[nodiscard]] std::string becomeUser(uid_t user, gid_t group, const std::vector<gid_t>& groups);

/// Gives up root's identity where it has it, for that of `user`, a number; every privilege, also of
/// programs that it might execute; memory that others could look into; cores, more than a few
/// descriptors.
[[nodiscard]] std::string dropPrivileges(uid_t user);

/// Does the same as dropPrivileges from root, except that this process and what it executes may
/// still read every file that they can name. Show it a tree of its own first, with nothing that it
/// must not read, and call keepToUnpacking: a file handle would lead out of the tree.
[[nodiscard]] std::string dropAllButReading(uid_t user);

/// Gives up all system calls but those that a program takes to start, to read and write files, and
/// to compute in several threads. The others are refused as unknown (ENOSYS), for good and in
/// programs that it executes: no socket, mount, file handle, tracing, new process or namespace, and
/// no signal to another process.
[[nodiscard]] std::string keepToUnpacking();

/// Gives up everything but writing files below a folder, a descriptor, which becomes its root
/// directory and working directory: the network, every capability but those to write there whatever
/// the modes are and to end its child, other system calls, files elsewhere, memory that others
/// could look into, cores. The user stays who he is. Where the kernel or a right of the user is
/// missing for one of these (a root directory and a network of its own need root), the others still
/// hold. `child`: the only process that it may signal.
[[nodiscard]] std::string keepToWriting(int folder, pid_t child);

/// Gives up all system calls but those that it takes to wait for connections and to start and reap
/// processes like this one.
[[nodiscard]] std::string keepToServing();

/// Gives up all system calls but those that it takes to read open descriptors, to compute, and to
/// answer on one: no file can be opened, no process started or signalled, no socket made.
[[nodiscard]] std::string keepToComputing();

} // namespace qv
