#pragma once

#include "platform/foundation/process/worker/Worker.h"

#include <chrono>
#include <cstddef>
#include <deque>
#include <sys/types.h>
#include <vector>

namespace qv {

/// Has work done in other processes (performWork) for a program that goes on for long, and
/// remembers the users who have kept it waiting. For one thread.
class UserProcesses {
public:
    UserProcesses() = default;
    UserProcesses(const UserProcesses&) = delete;
    UserProcesses& operator=(const UserProcesses&) = delete;
    UserProcesses(UserProcesses&&) = delete;
    UserProcesses& operator=(UserProcesses&&) = delete;
    ~UserProcesses() = default; ///< a child that hangs is left to the reaper of this process

    /// Does the same as performWork on behalf of a user, whose files or processes make it wait.
    /// Work that is not done in time counts as noteLate. A process that hangs in the kernel is left
    /// behind and reaped later; while there is one on behalf of a user, the result is EBUSY.
    [[nodiscard]] WorkResult perform(uid_t onBehalfOf, const Work& work);

    /// The time to wait for a user's files and programs: the usual one, but less for users who were
    /// late.
    [[nodiscard]] std::chrono::milliseconds patienceWith(uid_t user,
                                                         std::chrono::milliseconds usual) const;
    void noteLate(uid_t user); ///< until he answers, or kMostLate others were late
    void noteAnswer(uid_t user);

    static constexpr std::chrono::milliseconds kLeastPatience{250};
    static constexpr std::size_t kMostLate = 1000;

private:
    struct Hanging {
        uid_t user;
        pid_t process;
    };
    [[nodiscard]] bool hasHanging(uid_t user);

    std::vector<Hanging> hanging_; // one a user
    std::deque<uid_t> late_;       // latest last
};

} // namespace qv
