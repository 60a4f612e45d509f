#include "platform/xpc/EventSource.h"

#include "platform/xpc/MainQueue.h"

namespace qv::xpc {

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
    queue.disarm(*this);
    if (descriptor >= 0) {
        queue.unlist(*this);
        descriptor = -1;
    }
}

Error EventSource::setEvents(std::uint32_t events) {
    return registration_->queue.list(*registration_, events);
}

void EventSource::setDeadline(std::chrono::steady_clock::time_point deadline) {
    registration_->queue.arm(*registration_, deadline);
}

void EventSource::disable() noexcept {
    Registration& registration = *registration_;
    if (registration.descriptor < 0) {
        registration.queue.disarm(registration);
    } else if (registration.beingServed) {
        registration.wanted = false; // nothing comes until it is listed again
    } else {
        registration.queue.unlist(registration);
    }
}

} // namespace qv::xpc
