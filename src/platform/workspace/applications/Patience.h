#pragma once

#include "platform/foundation/process/state/UserRecord.h"
#include "platform/foundation/values/Error.h"

#include <chrono>
#include <string>

namespace qv {

// The time for which the service waits for files and programs of a user who has never been late;
// all other clients wait meanwhile. A healthy one answers in milliseconds, but a disk may have to
// wake up, a server may be asked for a folder, and a bus answers only when the application has
// started.

inline constexpr std::chrono::milliseconds kPatienceToLook{2000}; ///< for files and processes

struct LaunchPatience {
    std::chrono::milliseconds bus{6000};
    std::chrono::milliseconds manager{4000}; ///< also where there is none
};

/// The reason in words why UserProcesses::perform has not done something as a user.
[[nodiscard]] std::string whyNotPerformed(const UserRecord& user, const Error& error);

} // namespace qv
