#pragma once

#include "platform/foundation/process/state/UserRecord.h"
#include "platform/foundation/values/Error.h"

#include <tl/expected.hpp>

#include <chrono>
#include <cstddef>
#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace qv {

inline constexpr std::size_t kLongestUserResult = std::size_t{64} << 10U;

/// Has `work` done by a child process that is the user in every respect before it begins: user,
/// group and supplementary groups are his, it has no capability, no descriptor but the standard
/// three, every signal at its default (but SIGPIPE and SIGXFSZ ignored), "/" as working directory
/// and 077 as file-mode mask. Whatever the user has laid in its way can mislead it to nothing that
/// he could not do himself. It cannot be traced by him, and it dies with its parent. Where the user
/// is this process's own, nothing of that changes who it is.
///
/// Gives what `work` gives. Errors, of NSPOSIXErrorDomain: EPERM when this process may not become
/// the user, ETIMEDOUT when the work was not done within `patience` and EOVERFLOW when it gives
/// more than `longest` bytes (it is killed then, and has another moment to end), ECHILD when the
/// child ended otherwise, or what kept it from being started.
///
/// The child is a copy of this process with the calling thread alone in it: `work` may allocate,
/// but must not wait for other threads. What it throws ends it.
[[nodiscard]] tl::expected<std::string, Error>
performAsUser(const UserRecord& user, const std::function<std::string()>& work,
              std::chrono::milliseconds patience, std::size_t longest = kLongestUserResult);

/// Has work done as users (performAsUser) for a program that goes on for long, and remembers
/// the users who have kept it waiting. For one thread.
class UserProcesses {
public:
    UserProcesses() = default;
    UserProcesses(const UserProcesses&) = delete;
    UserProcesses& operator=(const UserProcesses&) = delete;
    UserProcesses(UserProcesses&&) = delete;
    UserProcesses& operator=(UserProcesses&&) = delete;
    ~UserProcesses() = default; ///< a child that hangs is left to the reaper of this process

    struct Bounds {
        std::chrono::milliseconds patience;
        std::size_t longest = kLongestUserResult;
        std::optional<uid_t> onBehalfOf =
            std::nullopt; ///< who makes it wait, if not the user that it is done as
    };
    /// As performAsUser. Work that is not done in time counts as noteLate. A process that hangs in
    /// the kernel, where no signal reaches it, is left behind and reaped later; while there is one
    /// on behalf of a user, EBUSY is all the answer for him.
    [[nodiscard]] tl::expected<std::string, Error>
    perform(const UserRecord& user, const std::function<std::string()>& work, const Bounds& bounds);

    /// How long to wait for what is a user's: as long as usual, but for those who were late.
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
