#include "platform/xpc/RateLimiter.h"

#include <fmt/core.h>

#include <utility>

namespace qv::xpc {

RateLimiter::RateLimiter(MainQueue& queue, unsigned most, std::chrono::milliseconds interval,
                         Sink sink)
    : queue_(queue), most_(most), interval_(interval), sink_(std::move(sink)) {}

void RateLimiter::log(std::string_view record) {
    const MainQueue::Clock::time_point now = queue_.now();
    if (now >= end_) {
        endInterval();
        end_ = now + interval_;
    }
    if (passed_ < most_) {
        ++passed_;
        sink_(record);
        return;
    }
    ++suppressed_;
    if (!timer_) {
        timer_ = queue_.addTimer([this] { endInterval(); });
    }
    if (suppressed_ == 1) {
        timer_.setDeadline(end_);
    }
}

void RateLimiter::endInterval() {
    passed_ = 0;
    if (const std::uint64_t count = std::exchange(suppressed_, 0); count > 0) {
        sink_(fmt::format("{} further records of this kind in the last {} ms are not shown", count,
                          interval_.count()));
    }
}

} // namespace qv::xpc
