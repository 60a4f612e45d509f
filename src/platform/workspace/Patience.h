#pragma once

#include "platform/foundation/process/UserRecord.h"
#include "platform/foundation/values/Error.h"

#include <chrono>
#include <string>

namespace qv {

// How long to wait for what is a user's, who has never been late: everybody else waits meanwhile.
// What is healthy answers in milliseconds, but for a disk that has to wake up and a server that is
// asked for a folder; and an application that its bus starts is only there when it has started.

inline constexpr std::chrono::milliseconds kPatienceToLook{2000}; ///< for files and processes

struct LaunchPatience {
    std::chrono::milliseconds bus{6000};
    std::chrono::milliseconds manager{4000}; ///< also where there is none
};

/// Why UserProcesses::perform has not done something as a user, in words.
[[nodiscard]] std::string whyNotPerformed(const UserRecord& user, const Error& error);

} // namespace qv
