#include "platform/xpc/EventSource.h"

#include "platform/xpc/MainQueue.h"

#include <systemd/sd-event.h>

namespace qv::xpc {

void EventSource::SourceDeleter::operator()(sd_event_source* source) const noexcept {
    sd_event_source_disable_unref(source);
}

EventSource& EventSource::operator=(EventSource&& other) noexcept {
    if (this != &other) {
        reset();
        registration_ = std::move(other.registration_);
    }
    return *this;
}

void EventSource::reset() noexcept {
    if (registration_ != nullptr) {
        registration_->end(); // now, even if a running handler keeps the rest alive
        registration_.reset();
    }
}

void EventSource::Registration::end() noexcept {
    source.reset();
    if (descriptor >= 0) {
        queue.unlist(*this);
        descriptor = -1;
    }
}

Error EventSource::setEvents(std::uint32_t events) {
    return registration_->queue.list(*registration_, events);
}

Error EventSource::setDeadline(std::chrono::steady_clock::time_point deadline) {
    registration_->deadline = deadline;
    sd_event_source* source = registration_->source.get();
    int result = sd_event_source_set_time(source, registration_->queue.microsecondsOf(deadline));
    if (result >= 0) {
        result = sd_event_source_set_enabled(source, SD_EVENT_ONESHOT);
    }
    return result < 0 ? Error::posix(-result) : Error();
}

void EventSource::disable() noexcept {
    if (registration_->descriptor >= 0) {
        registration_->queue.unlist(*registration_);
        return;
    }
    // Turning a valid source off takes nothing that could be missing.
    static_cast<void>(sd_event_source_set_enabled(registration_->source.get(), SD_EVENT_OFF));
}

} // namespace qv::xpc
