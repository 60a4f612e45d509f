#pragma once

#include <chrono>
#include <map>
#include <sys/types.h>

namespace qv::xpc {

/// The time that users have taken from all others. A debt is paid off as time passes, each at the
/// same rate, so that nobody takes more than his share for long, however much he takes at once. For
/// one thread.
class Debts {
public:
    using Clock = std::chrono::steady_clock;

    /// `share` is the time that a second pays off, and the most that anybody may owe.
    explicit Debts(std::chrono::nanoseconds share) noexcept : share_(share) {}

    /// A negative cost gives back what was taken before.
    void add(uid_t user, std::chrono::nanoseconds cost, Clock::time_point now);
    /// Whether the user owes more than anybody may.
    [[nodiscard]] bool isOverdrawn(uid_t user, Clock::time_point now) const;

private:
    struct Debt {
        std::chrono::nanoseconds amount{};
        Clock::time_point since;
    };
    [[nodiscard]] std::chrono::nanoseconds left(const Debt& debt, Clock::time_point now) const;

    std::chrono::nanoseconds share_;
    std::map<uid_t, Debt> debts_; // debts paid off go when the next one is added
};

} // namespace qv::xpc
