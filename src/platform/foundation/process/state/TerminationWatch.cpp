#include "platform/foundation/process/state/TerminationWatch.h"

#include <sys/signalfd.h>
#include <unistd.h>

namespace qv {

TerminationWatch::TerminationWatch() {
    sigset_t signals{};
    ::sigemptyset(&signals);
    for (const int each : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction action{};
        ::sigaction(each, nullptr, &action);
        if (action.sa_handler != SIG_IGN) { // as nohup(1) and a shell's & have it
            ::sigaddset(&signals, each);
        }
    }
    ::pthread_sigmask(SIG_BLOCK, &signals, &before_);
    descriptor_ = Descriptor(::signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK));
}

TerminationWatch::~TerminationWatch() { ::pthread_sigmask(SIG_SETMASK, &before_, nullptr); }

bool TerminationWatch::take() {
    bool taken = false;
    signalfd_siginfo signal{};
    while (::read(descriptor_.get(), &signal, sizeof signal) == sizeof signal) {
        taken = true;
    }
    return taken;
}

} // namespace qv
