#pragma once

#include "platform/foundation/os/Descriptor.h"
#include "platform/xpc/EventSource.h"

#include <tl/expected.hpp>

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <set>
#include <utility>

namespace qv::xpc {

class Turns;

/// The process's serial loop. Everything in this room happens on it, one handler at a time, on the
/// thread that calls run(); nothing here may be called from another thread.
///
/// An exception that a handler lets out is logged and ends that handler's registration, never the
/// process.
class MainQueue {
public:
    using Work = std::function<void()>;
    using Clock = std::chrono::steady_clock;

    [[nodiscard]] static tl::expected<std::unique_ptr<MainQueue>, Error> create();
    MainQueue(const MainQueue&) = delete;
    MainQueue& operator=(const MainQueue&) = delete;
    MainQueue(MainQueue&&) = delete;
    MainQueue& operator=(MainQueue&&) = delete;
    ~MainQueue();

    /// Serves until exit() is called; gives its code. 1, logged, when the loop itself fails.
    [[nodiscard]] int run();
    /// Ends run() after the handler at hand; all other pending work is abandoned.
    void exit(int code) noexcept;

    /// Runs `work` later, after what was given before.
    void async(Work work);

    /// `handler` gets the events of `fd`, as epoll numbers them. The descriptor is borrowed and
    /// must live as long as the registration. Descriptors that are ready are served one after the
    /// other, in the order in which they became ready.
    [[nodiscard]] tl::expected<EventSource, Error>
    watch(int fd, std::uint32_t events, std::function<void(std::uint32_t)> handler);
    /// A timer that is not armed yet.
    [[nodiscard]] EventSource addTimer(Work handler);

    /// The monotonic clock without the time in which one handler kept all others waiting (anything
    /// above 100 ms), so that a deadline counts only time in which its peer could have been heard.
    /// Stands still inside a handler.
    [[nodiscard]] Clock::time_point now() const noexcept;
    /// Leaves the handler that runs out of that clock, however short it is.
    void leaveOutHandler() noexcept { leftOut_ = true; }

    /// The turns in which requests wait until they are begun.
    [[nodiscard]] Turns& turns() noexcept { return *turns_; }

private:
    friend class EventSource;
    MainQueue() noexcept;

    [[nodiscard]] Error list(EventSource::Registration& registration, std::uint32_t events);
    void unlist(EventSource::Registration& registration) noexcept;
    void arm(EventSource::Registration& timer, Clock::time_point deadline);
    void disarm(EventSource::Registration& timer) noexcept;
    /// The time until the next timer is due, as epoll takes it.
    [[nodiscard]] int longestWait() const noexcept;
    void serve(EventSource::Registration& registration, std::uint32_t events) noexcept;
    void listAgain(std::shared_ptr<EventSource::Registration> served) noexcept;
    void runTimers() noexcept;
    template <typename Body> bool guarded(const Body& body) noexcept;
    void dispatch(EventSource::Registration& registration, std::uint32_t events) noexcept;
    void runDeferred() noexcept;

    // Gives descriptors one by one, as their bytes came in.
    Descriptor arrivals_;
    std::set<std::pair<Clock::time_point, EventSource::Registration*>> timers_; // those armed
    // Waits for nothing but the end of the other side, and is listed again a round later: its
    // request may be answered by then, and it will wait for the next one.
    std::shared_ptr<EventSource::Registration> later_;
    std::deque<Work> deferred_;
    std::unique_ptr<Turns> turns_;
    Clock::duration blocked_{};
    Clock::time_point handlerBegin_; // while a handler runs
    bool inHandler_ = false;
    bool leftOut_ = false;
    bool exiting_ = false;
    int exitCode_ = 0;
};

} // namespace qv::xpc
