#pragma once

#include "platform/foundation/values/Error.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <utility>

namespace qv::xpc {

class MainQueue;

/// One registration in a MainQueue, of a descriptor or of a timer; its destruction unregisters it,
/// also from inside its own handler. Used on the queue only.
class EventSource {
public:
    EventSource() noexcept = default; ///< registers nothing
    EventSource(EventSource&& other) noexcept = default;
    EventSource& operator=(EventSource&& other) noexcept;
    EventSource(const EventSource&) = delete;
    EventSource& operator=(const EventSource&) = delete;
    ~EventSource() { reset(); }

    explicit operator bool() const noexcept { return registration_ != nullptr; }
    void reset() noexcept;

    /// Sets the events to wait for on the descriptor, as epoll numbers them; the end of the other
    /// side is always reported.
    [[nodiscard]] Error setEvents(std::uint32_t events);
    /// Arms the timer, once, for a moment of MainQueue::now().
    void setDeadline(std::chrono::steady_clock::time_point deadline);
    /// Stops reporting until the next set function.
    void disable() noexcept;

private:
    friend class MainQueue;
    // The queue keeps it alive while the handler runs.
    struct Registration : std::enable_shared_from_this<Registration> {
        Registration(MainQueue& owner, std::function<void(std::uint32_t)> work) noexcept
            : queue(owner), handler(std::move(work)) {}
        MainQueue& queue;
        std::function<void(std::uint32_t)> handler;
        Registration(const Registration&) = delete;
        Registration& operator=(const Registration&) = delete;
        Registration(Registration&&) = delete;
        Registration& operator=(Registration&&) = delete;
        ~Registration() { end(); }
        void end() noexcept; ///< takes it off the loop; nothing more comes
        // A timer: when it is due, while it is armed.
        std::chrono::steady_clock::time_point deadline;
        bool armed = false;
        // For a descriptor, whether the queue's epoll has it, and the events that it is waited for.
        // It is reported once and then waited for again, unless its handler wishes otherwise.
        int descriptor = -1;
        std::uint32_t events = 0;
        bool listed = false;
        bool beingServed = false;
        bool wanted = false; ///< it is listed again behind the running handler
    };
    explicit EventSource(std::shared_ptr<Registration> registration) noexcept
        : registration_(std::move(registration)) {}

    std::shared_ptr<Registration> registration_;
};

} // namespace qv::xpc
