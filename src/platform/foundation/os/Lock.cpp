#include "platform/foundation/os/Lock.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <thread>

namespace qv {

namespace {

bool isStillNamed(const struct stat& held, int folder, const char* name) {
    struct stat found{};
    return ::fstatat(folder, name, &found, AT_SYMLINK_NOFOLLOW) == 0 &&
           held.st_dev == found.st_dev && held.st_ino == found.st_ino;
}

// Returns 0, the errno, or EWOULDBLOCK if it has to be tried again.
int tryLock(int folder, const char* name, Descriptor& file) {
    constexpr mode_t kOwnerOnly = 0600;
    file = Descriptor(
        ::openat(folder, name, O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, kOwnerOnly));
    struct stat info{};
    if (!file || ::fstat(file.get(), &info) != 0) {
        return errno;
    }
    if (!S_ISREG(info.st_mode)) {
        return EINVAL;
    }
    if (::flock(file.get(), LOCK_EX | LOCK_NB) != 0) {
        return errno == EINTR ? EWOULDBLOCK : errno;
    }
    return isStillNamed(info, folder, name) ? 0 : EWOULDBLOCK;
}

} // namespace

tl::expected<Lock, int> Lock::take(int folder, const char* name, const Deadline& deadline) {
    constexpr std::chrono::milliseconds kPause{5};
    for (;;) {
        Descriptor file;
        const int status = tryLock(folder, name, file);
        if (status == 0) {
            return Lock(std::move(file));
        }
        if (status != EWOULDBLOCK) {
            return tl::unexpected(status);
        }
        if (deadline.hasPassed()) {
            return tl::unexpected(ETIMEDOUT);
        }
        std::this_thread::sleep_for(kPause); // flock() cannot wait until a deadline
    }
}

} // namespace qv
