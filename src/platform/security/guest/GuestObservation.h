#pragma once

#include "platform/foundation/os/ProcessIdentity.h"
#include "platform/foundation/os/ProcessText.h"

#include <cstdint>
#include <optional>
#include <string>
#include <sys/stat.h>
#include <sys/types.h>
#include <vector>

namespace qv {

/// The origin of one executable mapping.
struct MappedCode {
    enum class Backing : std::uint8_t {
        kernel,    ///< [vdso], [vsyscall]
        anonymous, ///< memory that no file backs
        file,
        refusedFile, ///< on a file system that is not allowed, so that nobody touched it
    };
    ExecutableMapping mapping;
    Backing backing = Backing::anonymous;
    struct stat file{}; ///< Backing::file only
};

[[nodiscard]] inline bool isSameFile(const struct stat& left, const struct stat& right) noexcept {
    return left.st_dev == right.st_dev && left.st_ino == right.st_ino;
}

/// The facts that the kernel showed of a living process in one look-up. Facts only; GuestFlags
/// judges them.
struct GuestObservation {
    pid_t process = 0;
    std::optional<PeerCredentials> peer; ///< at connect; none: not looked up through a connection
    struct stat executable{};            ///< at the end of the look-up
    MountedFileSystem fileSystem;        ///< the file system on which the executable stands
    std::string path;                    ///< of the executable as shown, escaped; for people only
    ProcessStatus status;                ///< at the end; `tracer` when there was one at any time
    bool dumpable = true;                ///< its own user may look into it or trace it
    bool dumpableKnown = false;          ///< not told of a process that runs as root
    std::vector<MappedCode> mappings;    ///< all that is executable
    std::string change;                  ///< the change while it was looked at; empty: nothing
};

} // namespace qv
