#pragma once

#include "platform/foundation/process/state/UserRecord.h"
#include "platform/foundation/process/worker/ValueFrame.h"

#include <chrono>
#include <cstddef>
#include <functional>
#include <optional>
#include <sys/types.h>
#include <variant>
#include <vector>

namespace qv {

/// The confinement of work that reads what strangers have made (Sandbox.h): the work may compute,
/// read and write open descriptors, and nothing else. Files that it needs, such as the time zone,
/// have to be loaded before.
struct Confinement {
    uid_t user; ///< the user that a process of root becomes: a number without an account
};

/// Work for another process, and its bounds.
struct Work {
    std::variant<UserRecord, Confinement> as;
    std::function<WorkResult(const Value& input)> run;
    Value input = {};
    std::chrono::milliseconds patience{};
    std::size_t longest = kLongestResult; ///< bytes of the result, as its frame holds it
    std::vector<int> descriptors = {};    ///< borrowed; stay open there, under their numbers

    static constexpr std::size_t kLongestResult = std::size_t{64} << 10U;
};

/// The result of work that has nothing to tell but whether it was done: the null object or an
/// error.
[[nodiscard]] WorkResult resultOf(Error error);

/// Has work done by a child process. Where it works as a user, it is the user in every respect
/// before it begins: user, group and supplementary groups are the user's, and it has no capability.
/// In both cases it has no descriptor but the standard three, those of the work and one for its
/// result, every signal at its default (but SIGPIPE and SIGXFSZ ignored), "/" as working directory
/// and 077 as file-mode mask. A link or file that a user has laid in its way can mislead it to
/// nothing that the user could not do himself. It cannot be traced by the user, and it dies with
/// its parent. Where the user is this process's own, nothing of that changes who it is.
///
/// Gives the result of the work. Errors of kWorkerErrorDomain, besides those of the frame: EPERM if
/// this process may not become the user or confine itself, ETIMEDOUT if the work was not done
/// within its patience (the child is killed then, and has another moment to end), ECHILD if the
/// child ended otherwise, or the errno of what kept it from being started.
///
/// The child is a copy of this process with the calling thread alone in it: the work may allocate,
/// but must not wait for other threads. An exception of the work ends the child. A child that hangs
/// in the kernel, where no signal reaches it, is not reaped: its process ID goes to `left`.
[[nodiscard]] WorkResult performWork(const Work& work, std::optional<pid_t>* left = nullptr);

/// The code of an error of kWorkerErrorDomain; 0 for an error that the work itself gave.
[[nodiscard]] int workerFailure(const Error& error);

} // namespace qv
