#pragma once

#include "platform/foundation/os/Descriptor.h"

#include <csignal>

namespace qv {

/// Holds SIGINT, SIGTERM and SIGHUP back while it lives, but for those that are ignored, in the
/// calling thread and those that it starts. Those that have come and were not taken are delivered
/// at its end.
class TerminationWatch {
public:
    TerminationWatch();
    TerminationWatch(const TerminationWatch&) = delete;
    TerminationWatch& operator=(const TerminationWatch&) = delete;
    TerminationWatch(TerminationWatch&&) = delete;
    TerminationWatch& operator=(TerminationWatch&&) = delete;
    ~TerminationWatch();

    /// A descriptor that is readable once one of them has come.
    [[nodiscard]] int descriptor() const noexcept { return descriptor_.get(); }
    /// Takes those that have come: they are not delivered. False if none has.
    bool take();

private:
    sigset_t before_{};
    Descriptor descriptor_;
};

} // namespace qv
