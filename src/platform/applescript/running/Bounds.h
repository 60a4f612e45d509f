#pragma once

#include "platform/applescript/running/Interpreter.h"

#include <chrono>
#include <cstddef>
#include <cstdint>

namespace qv::applescript {

/// The rest that a run has of its steps, its time and its memory. A step is one decrement; every so
/// many of them the rest is looked at.
class Bounds {
public:
    explicit Bounds(const Limits& limits)
        : stepsLeft_(limits.steps), end_(std::chrono::steady_clock::now() + limits.time) {}

    /// Throws -1712 or -108, which end the script.
    void step() {
        if (--untilCheck_ == 0) {
            check();
        }
    }

    /// Charges several steps at once, where a value decides how long something takes; looks at the
    /// rest once.
    void steps(std::size_t count) {
        untilCheck_ = count < untilCheck_ ? untilCheck_ - static_cast<std::uint32_t>(count) : 1;
        step();
    }
    /// Charges for work on so many bytes of text.
    void bytes(std::size_t count) { steps(count / kBytesOfAStep); }

private:
    static constexpr std::size_t kBytesOfAStep = 64;

    void check();

    std::uint32_t untilCheck_ = 1;
    std::uint64_t stepsLeft_;
    std::chrono::steady_clock::time_point end_;
};

} // namespace qv::applescript
