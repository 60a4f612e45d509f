#pragma once

#include "platform/foundation/process/UserRecord.h"
#include "platform/foundation/values/Error.h"

#include <tl/expected.hpp>

#include <chrono>
#include <cstddef>
#include <functional>
#include <string>

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
/// more than `longest` bytes (it is killed then), ECHILD when the child ended otherwise, or what
/// kept it from being started.
///
/// The child is a copy of this process with the calling thread alone in it: `work` may allocate,
/// but must not wait for other threads. What it throws ends it.
[[nodiscard]] tl::expected<std::string, Error>
performAsUser(const UserRecord& user, const std::function<std::string()>& work,
              std::chrono::milliseconds patience, std::size_t longest = kLongestUserResult);

} // namespace qv
