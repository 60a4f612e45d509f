#pragma once

#include "platform/foundation/values/Error.h"

#include <cstdint>
#include <functional>

namespace qv {

/// The group by which this process can prove that it was started cleanly. An installed client's
/// executable is set-group-id to a group without members: the kernel gives that group only under
/// its rules for privileged programs (no preloaded library, no tracer), so a program that connects
/// with it has been started cleanly, whatever its starter wanted. An executed child inherits the
/// effective group, and a child that its user controls could start the client again as he likes. It
/// never inherits the saved group (execve(2) makes it a copy of the effective one), so the group is
/// kept there and is the effective one around connect(2) only.
enum class LaunchMark : std::uint8_t {
    none,    ///< not started set-group-id
    held,    ///< started set-group-id, and the group is there: as the effective one until
             ///< prepareMarkedProcess(), as the saved one only after it
    givenUp, ///< started set-group-id, but the group is gone, which is for good
};

/// The mark is judged by the groups that the kernel started this process with (AT_GID and AT_EGID,
/// getauxval(3)) and those that it has now. Whether it is the group of any service is not known
/// here.
[[nodiscard]] LaunchMark launchMark() noexcept;

/// Puts right the state of a process that holds a mark, which its starter chose, for the time that
/// it connects and after; again if called again:
/// - not dumpable, no core file (RLIMIT_CORE 0, for good);
/// - of all threads the real and the effective group are the user's, the marking group is saved
/// only;
/// - soft limits below what is usual are raised to that, at most to their hard limits: NOFILE to
///   1024, STACK to 8 MiB, FSIZE, AS and DATA to no limit;
/// - SIGXFSZ ignored if it was at its default; the calling thread's signal mask emptied, the first
///   time only;
/// - /dev/null where descriptor 0, 1 or 2 is closed; file-mode mask 022.
/// An error (NSPOSIXErrorDomain, with a text) says what cannot be put right, such as a hard limit
/// that is too low to work with. In other processes it does nothing.
[[nodiscard]] Error prepareMarkedProcess();

/// Runs `connecting` with the mark, in a process that has been prepared, as effective group of the
/// calling thread alone and with all signals blocked there, because a handler might execute
/// something. It must not execute or fork and should not take long. Other threads may do anything
/// meanwhile. An error (NSPOSIXErrorDomain, with a text) if the mark has been given up, and
/// `connecting` has not run then; or if the group stays the effective one. In processes without a
/// mark only runs `connecting`.
[[nodiscard]] Error showLaunchMark(const std::function<void()>& connecting);

/// Gives up the mark of all threads for good: real, effective and saved group are the real one
/// afterwards, supplementary groups stay, and the process is at no moment dumpable. An error
/// (NSPOSIXErrorDomain, with a text) if that does not hold. In processes without a mark it does
/// nothing.
[[nodiscard]] Error giveUpLaunchMark();

} // namespace qv
