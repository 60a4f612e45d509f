#include "platform/foundation/files/ChangeMode.h"

#include <atomic>
#include <cerrno>
#include <fcntl.h>
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

// Learned once from the kernel, which does not change.
std::atomic<bool>& kernelHasIt() noexcept {
    static std::atomic<bool> hasIt = true;
    return hasIt;
}

} // namespace

int changeModeNotFollowing(int parentFd, const char* name, mode_t mode) noexcept {
    if (kernelHasIt().load(std::memory_order_relaxed)) {
        const long result = ::syscall(kFchmodat2, parentFd, name, mode, AT_SYMLINK_NOFOLLOW);
        // A filter of system calls that does not know this one yet may answer EPERM.
        if (result == 0 || (errno != ENOSYS && errno != EPERM)) {
            return static_cast<int>(result);
        }
        if (errno == ENOSYS) {
            kernelHasIt() = false;
        }
    }
    return ::fchmodat(parentFd, name, mode, AT_SYMLINK_NOFOLLOW); // by way of O_PATH and /proc
}

} // namespace qv
