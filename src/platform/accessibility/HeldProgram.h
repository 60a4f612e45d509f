#pragma once

#include "platform/foundation/digest/SHA256.h"
#include "platform/foundation/os/Descriptor.h"
#include "platform/foundation/values/Error.h"

#include <tl/expected.hpp>

#include <string>
#include <sys/types.h>

namespace qv {

/// A program's file, held from the moment it was found: its path is not used a second time. Errors
/// are of kAXErrorDomain: IllegalArgument if it is not a file that could be executed, else Failure.
struct HeldProgram {
    Descriptor file; ///< O_PATH
    /// The path without links, as the kernel shows it: followed by " (deleted)" if the file is gone
    /// there.
    std::string path;

    /// Follows links.
    [[nodiscard]] static tl::expected<HeldProgram, Error> at(const std::string& path);
    /// The file that a process executes. Needs root for the processes of others. IllegalArgument
    /// also if there is no such process, or if it could forge the answer.
    [[nodiscard]] static tl::expected<HeldProgram, Error> executedBy(pid_t process);

    /// The digest of all bytes, at most 1 GiB. The result is a Failure if the file changes
    /// meanwhile.
    [[nodiscard]] tl::expected<SHA256Digest, Error> digest() const;
};

} // namespace qv
