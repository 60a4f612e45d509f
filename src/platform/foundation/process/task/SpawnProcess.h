#pragma once

#include <tl/expected.hpp>

#include <array>
#include <cstdint>
#include <string>
#include <sys/types.h>
#include <vector>

namespace qv {

inline constexpr int kFirstPrivateFd = 3; ///< after those of the standard streams

/// A process to be started, and all that it gets: besides this its user, its groups, its file-mode
/// mask and its limits are this process's own. Every signal is unblocked and at its default, no
/// descriptor above 2 is open.
struct SpawnRequest {
    enum class Leads : std::uint8_t { processGroup, session }; ///< of its own

    std::string program;
    std::vector<std::string> words;       ///< the name that it is called by, then its arguments
    std::vector<std::string> environment; ///< NAME=VALUE
    std::string directory = "/";
    std::array<int, 3> standard = {-1, -1, -1}; ///< borrowed, above 2; -1: this process's own
    Leads leads = Leads::processGroup;
};

struct SpawnFailure {
    enum class While : std::uint8_t { preparing, executing };
    While when = While::executing;
    int errorNumber = 0;
};

/// Returns when the program has been executed; no text may hold a NUL byte. Costs the same however
/// much memory this process has: nothing of it is copied.
[[nodiscard]] tl::expected<pid_t, SpawnFailure> spawnProcess(SpawnRequest request);

} // namespace qv
