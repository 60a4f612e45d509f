#pragma once

#include "platform/foundation/os/Deadline.h"
#include "platform/foundation/process/task/SpawnProcess.h"

#include <cstddef>
#include <cstdint>
#include <string>

namespace qv::applescript::world {

/// The outcome of a program whose outputs were read.
struct CommandOutcome {
    enum class Ending : std::uint8_t {
        exited,      ///< `status` is its exit status
        signalled,   ///< `status` is the signal
        notStarted,  ///< `status` is the errno
        tooLong,     ///< its output: it was killed
        timedOut,    ///< it was killed
        interrupted, ///< this process was told to end
    };
    Ending ending = Ending::notStarted;
    int status = 0;
    std::string output;
    std::string errors;
};

inline constexpr std::size_t kLongestOutput = std::size_t{64} << 20U; ///< bytes of both outputs

/// Runs a program with /dev/null as input, reads both of its outputs until all that have them open
/// have closed them, and waits until it has ended. Where it is killed, so are the processes of its
/// group. They get SIGTERM when this process is told to end by SIGINT, SIGTERM or SIGHUP, which
/// then takes its course here.
[[nodiscard]] CommandOutcome runCommand(SpawnRequest request, const Deadline& deadline,
                                        std::size_t longest = kLongestOutput);

} // namespace qv::applescript::world
