#pragma once

#include "platform/foundation/os/Descriptor.h"

#include <chrono>

namespace qv::examiner {

/// Judges programs for the service: takes connections of a listening socket, each with one request
/// (platform/security/examination/ExaminerCall.h), and gives each to a process of its own, which
/// answers and ends. Harm that a stranger's bytes might do to that process reaches neither the next
/// examination nor this one.
class Examiner {
public:
    static constexpr int kMostAtOnce = 8;

    explicit Examiner(Descriptor listener) : listener_(std::move(listener)) {}

    /// Serves until nothing was asked for so long. The exit status.
    [[nodiscard]] int run(std::chrono::milliseconds idleTime);

private:
    void reap(int options);
    void serve(const Descriptor& connection);

    Descriptor listener_;
    int running_ = 0;
};

} // namespace qv::examiner
