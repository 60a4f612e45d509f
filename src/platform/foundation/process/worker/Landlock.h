#pragma once

#include <string>

namespace qv {

/// Has the kernel refuse this process, for good, every access to files but these, below a folder:
/// making, opening for writing and removing files, making and listing folders, making symbolic
/// links. A file that is open stays open. Does nothing where the kernel has no Landlock. Gives what
/// failed, in words; empty for success. Needs a process that can gain no privileges.
[[nodiscard]] std::string keepToFolder(int folder);

} // namespace qv
