#pragma once

#include <sys/types.h>

namespace qv {

/// Like fchmodat(2), but an item that is a symbolic link is refused with EOPNOTSUPP, never
/// followed. One call on Linux 6.6 and later; before, it needs a mounted /proc.
[[nodiscard]] int changeModeNotFollowing(int parentFd, const char* name, mode_t mode) noexcept;

} // namespace qv
