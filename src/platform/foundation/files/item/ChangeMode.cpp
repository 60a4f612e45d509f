#include "platform/foundation/files/item/ChangeMode.h"

#include <fmt/core.h>

#include <atomic>
#include <cerrno>
#include <fcntl.h>
#include <optional>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace qv {

namespace {

#ifdef SYS_fchmodat2
constexpr long kFchmodat2 = SYS_fchmodat2;
#else
constexpr long kFchmodat2 = 452; // the same on all architectures; younger than some headers
#endif

// The answer is learned once from the kernel, which does not change.
std::atomic<bool>& kernelHasIt() noexcept {
    static std::atomic<bool> hasIt = true;
    return hasIt;
}

// The errno that the kernel answers with; none if it does not know the call.
std::optional<int> attempt(int fd, const char* name, mode_t mode, int flags) noexcept {
    if (!kernelHasIt().load(std::memory_order_relaxed)) {
        return std::nullopt;
    }
    const long result = ::syscall(kFchmodat2, fd, name, mode, flags);
    if (result != 0 && errno == ENOSYS) {
        kernelHasIt() = false;
    }
    // A filter of system calls that does not know this one yet may answer EPERM.
    const bool isAnswer = result == 0 || (errno != ENOSYS && errno != EPERM);
    return isAnswer ? std::optional(static_cast<int>(result)) : std::nullopt;
}

} // namespace

int changeModeNotFollowing(int parentFd, const char* name, mode_t mode) noexcept {
    const std::optional<int> result = attempt(parentFd, name, mode, AT_SYMLINK_NOFOLLOW);
    // The C library reaches the item over O_PATH and /proc.
    return result ? *result : ::fchmodat(parentFd, name, mode, AT_SYMLINK_NOFOLLOW);
}

int changeModeOfHeldItem(int item, mode_t mode) {
    if (const std::optional<int> result = attempt(item, "", mode, AT_EMPTY_PATH)) {
        return *result;
    }
    return ::chmod(fmt::format("/proc/self/fd/{}", item).c_str(), mode);
}

} // namespace qv
