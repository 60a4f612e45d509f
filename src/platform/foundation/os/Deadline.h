#pragma once

#include <algorithm>
#include <chrono>
#include <optional>

namespace qv {

/// The moment until which something may take; there may be none.
class Deadline {
public:
    using Clock = std::chrono::steady_clock;

    Deadline() noexcept = default; ///< never passes
    // NOLINTNEXTLINE(google-explicit-constructor): a moment is a deadline
    Deadline(Clock::time_point moment) noexcept : moment_(moment) {}
    [[nodiscard]] static Deadline after(Clock::duration time) { return {Clock::now() + time}; }

    [[nodiscard]] bool canPass() const noexcept { return moment_.has_value(); }
    [[nodiscard]] bool hasPassed() const { return moment_ && *moment_ <= Clock::now(); }
    /// The time left, rounded up so that a wait of this length ends after the deadline, at most
    /// `longest`; 0 once the deadline has passed.
    template <typename Unit> [[nodiscard]] Unit left(Unit longest) const {
        return moment_
                   ? std::clamp(std::chrono::ceil<Unit>(*moment_ - Clock::now()), Unit(0), longest)
                   : longest;
    }
    /// The same for poll(2), which may be woken early.
    [[nodiscard]] int pollTimeout() const {
        constexpr std::chrono::milliseconds kLongest{60'000};
        return static_cast<int>(left(kLongest).count());
    }

private:
    std::optional<Clock::time_point> moment_;
};

} // namespace qv
