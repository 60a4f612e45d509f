#include "platform/foundation/process/state/ProcessState.h"

#include "platform/foundation/os/Descriptor.h"

#include <fmt/core.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace qv {

namespace {

void resetDispositions() {
    for (int number = 1; number < NSIG; ++number) {
        // SIGKILL, SIGSTOP and the C library's own signals refuse, and need no reset.
        // A reader that has gone and a file that grows too long are errors of a write.
        auto* const handler = number == SIGPIPE || number == SIGXFSZ ? SIG_IGN : SIG_DFL;
        static_cast<void>(std::signal(number, handler)); // NOLINT: no other thread is there yet
    }
}

} // namespace

Error openStandardDescriptors() {
    // If one of them is closed, the next file that is opened would take its number and get the
    // diagnostics of this program or of a tool that it starts.
    for (int number = STDIN_FILENO; number <= STDERR_FILENO; ++number) {
        if (::fcntl(number, F_GETFD) >= 0) {
            continue;
        }
        Descriptor null(::open("/dev/null", O_RDWR | O_CLOEXEC)); // the lowest free number
        if (!null || (null.get() == number && ::fcntl(number, F_SETFD, 0) != 0)) {
            return Error::withDescription(
                error_domain::kPOSIX, errno,
                fmt::format("descriptor {} is closed, and /dev/null cannot be opened in its place",
                            number));
        }
        if (null.get() == number) {
            static_cast<void>(null.release()); // it stays open
        } // another thread has been quicker to take the number
    }
    return {};
}

Error unblockSignals() {
    sigset_t none{};
    ::sigemptyset(&none);
    const int status = ::pthread_sigmask(SIG_SETMASK, &none, nullptr);
    return status == 0 ? Error() : Error::posix(status);
}

void resetFileModeMask() { ::umask(S_IWGRP | S_IWOTH); }

void sanitizeProcess() {
    const bool open = !openStandardDescriptors();
    resetDispositions();
    const bool unblocked = !unblockSignals();
    resetFileModeMask();
    if (!open || !unblocked || ::chdir("/") != 0) {
        std::abort();
    }
}

} // namespace qv
