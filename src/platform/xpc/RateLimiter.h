#pragma once

#include "platform/xpc/MainQueue.h"

#include <string_view>

namespace qv::xpc {

/// Passes on at most so many records in an interval, and after it says how many it held back:
/// records that a stranger can cause must not fill the log.
class RateLimiter {
public:
    using Sink = std::function<void(std::string_view record)>;

    /// The interval begins with its first record.
    RateLimiter(MainQueue& queue, unsigned most, std::chrono::milliseconds interval, Sink sink);
    RateLimiter(const RateLimiter&) = delete;
    RateLimiter& operator=(const RateLimiter&) = delete;
    RateLimiter(RateLimiter&&) = delete;
    RateLimiter& operator=(RateLimiter&&) = delete;
    ~RateLimiter() = default;

    void log(std::string_view record);

private:
    void endInterval();

    MainQueue& queue_;
    unsigned most_;
    std::chrono::milliseconds interval_;
    Sink sink_;
    EventSource timer_;
    MainQueue::Clock::time_point end_;
    unsigned passed_ = 0;
    std::uint64_t suppressed_ = 0;
};

} // namespace qv::xpc
