#pragma once

#include "platform/foundation/os/Descriptor.h"
#include "platform/xpc/EventSource.h"

#include <tl/expected.hpp>

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>

struct sd_event;
struct sd_event_source;

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
    /// Ends run() after the handler at hand; whatever else is pending is abandoned.
    void exit(int code) noexcept;

    /// Runs `work` later, after what was given before.
    void async(Work work);

    /// `handler` gets what happened on `fd`, as epoll numbers it. The descriptor is borrowed and
    /// must live as long as the registration. Descriptors that are ready are served one after
    /// the other, in the order in which they became ready.
    [[nodiscard]] tl::expected<EventSource, Error>
    watch(int fd, std::uint32_t events, std::function<void(std::uint32_t)> handler);
    /// A timer that is not armed yet.
    [[nodiscard]] tl::expected<EventSource, Error> addTimer(Work handler);

    /// The monotonic clock without the time in which one handler kept all others waiting (anything
    /// above 100 ms), so that a deadline counts only time in which its peer could have been heard.
    /// Stands still inside a handler.
    [[nodiscard]] Clock::time_point now() const noexcept;
    /// Leaves the handler that runs out of that clock, however short it is.
    void leaveOutHandler() noexcept { leftOut_ = true; }

    /// Where requests wait until they are begun.
    [[nodiscard]] Turns& turns() noexcept { return *turns_; }

private:
    friend class EventSource;
    struct LoopDeleter {
        void operator()(sd_event* loop) const noexcept;
    };
    MainQueue() noexcept;

    [[nodiscard]] Error takeArrivals();
    [[nodiscard]] Error list(EventSource::Registration& registration, std::uint32_t events);
    void unlist(EventSource::Registration& registration) noexcept;
    void serveArrival() noexcept;
    template <typename Body> bool guarded(const Body& body) noexcept;
    void dispatch(EventSource::Registration& registration, std::uint32_t events) noexcept;
    void runDeferred() noexcept;
    [[nodiscard]] std::uint64_t microsecondsOf(Clock::time_point moment) const noexcept;
    static int onTime(sd_event_source* source, std::uint64_t usec, void* userdata);
    static int onArrival(sd_event_source* source, int fd, std::uint32_t events, void* userdata);
    static int onDeferred(sd_event_source* source, void* userdata);

    std::unique_ptr<sd_event, LoopDeleter> loop_;
    // The loop serves sources that became ready together in any order; an epoll of their own gives
    // descriptors one by one, as their bytes came in.
    Descriptor arrivals_;
    EventSource arrivalsSource_;
    std::deque<Work> deferred_;
    EventSource deferredSource_;
    std::unique_ptr<Turns> turns_;
    Clock::duration blocked_{};
    Clock::time_point handlerBegin_; // while a handler runs
    bool inHandler_ = false;
    bool leftOut_ = false;
    bool exiting_ = false;
};

} // namespace qv::xpc
