#pragma once

#include <sys/types.h>

namespace qv {

/// Works like fchmodat(2), but an item that is a symbolic link is refused with EOPNOTSUPP, never
/// followed. One call on Linux 6.6 and later; before, it needs a mounted /proc.
[[nodiscard]] int changeModeNotFollowing(int parentFd, const char* name, mode_t mode) noexcept;

/// Works like fchmod(2), for an item that is held by O_PATH and not a link; with the same demands.
[[nodiscard]] int changeModeOfHeldItem(int item, mode_t mode);

} // namespace qv
