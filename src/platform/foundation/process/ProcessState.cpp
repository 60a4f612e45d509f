#include "platform/foundation/process/ProcessState.h"

#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace qv {

namespace {

void resetSignals() {
    for (int number = 1; number < NSIG; ++number) {
        // SIGKILL, SIGSTOP and the C library's own signals refuse, and need no reset.
        auto* const handler = number == SIGPIPE ? SIG_IGN : SIG_DFL;
        static_cast<void>(std::signal(number, handler)); // NOLINT: no other thread is there yet
    }
    sigset_t none{};
    ::sigemptyset(&none);
    // NOLINTNEXTLINE(concurrency-mt-unsafe): as above
    if (::sigprocmask(SIG_SETMASK, &none, nullptr) != 0) {
        std::abort();
    }
}

// With one of them closed, the next file that is opened would take its number and get the
// diagnostics of this program or of a tool that it starts.
void openStandardDescriptors() {
    for (int number = STDIN_FILENO; number <= STDERR_FILENO; ++number) {
        if (::fcntl(number, F_GETFD) >= 0) {
            continue;
        }
        const int fd = ::open("/dev/null", O_RDWR | O_CLOEXEC); // the lowest free number
        if (fd != number || ::fcntl(fd, F_SETFD, 0) != 0) {
            std::abort();
        }
    }
}

} // namespace

void sanitizeProcess() {
    openStandardDescriptors();
    resetSignals();
    ::umask(S_IWGRP | S_IWOTH);
    if (::chdir("/") != 0) {
        std::abort();
    }
}

} // namespace qv
