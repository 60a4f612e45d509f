#include "platform/xpc/MainQueue.h"

#include "platform/foundation/log/Log.h"
#include "platform/xpc/Turns.h"

#include <fmt/core.h>
#include <systemd/sd-event.h>

#include <cerrno>
#include <cstdlib>
#include <exception>
#include <sys/epoll.h>
#include <utility>

namespace qv::xpc {

namespace {

// A handler that runs longer than this has kept the others waiting. Short ones count as ordinary
// time, or a stream of them would stop every deadline.
constexpr std::chrono::milliseconds kBlockage{100};
constexpr std::uint64_t kTimerAccuracy = 1000; // microseconds

void logEscaped(const char* reason) noexcept {
    try {
        log::write(log::Priority::error,
                   fmt::format("an event handler ended with an exception: {}", reason));
    } catch (...) { // NOLINT(bugprone-empty-catch): no memory left for the record
    }
}

} // namespace

void MainQueue::LoopDeleter::operator()(sd_event* loop) const noexcept { sd_event_unref(loop); }

MainQueue::MainQueue() noexcept = default;
MainQueue::~MainQueue() = default;

tl::expected<std::unique_ptr<MainQueue>, Error> MainQueue::create() {
    std::unique_ptr<MainQueue> queue(
        new MainQueue()); // NOLINT(cppcoreguidelines-owning-memory): the constructor is private
    sd_event* loop = nullptr;
    int result = sd_event_new(&loop);
    if (result < 0) {
        return tl::unexpected(Error::posix(-result));
    }
    queue->loop_.reset(loop);
    auto registration = std::make_shared<EventSource::Registration>(*queue, nullptr);
    sd_event_source* source = nullptr;
    result = sd_event_add_defer(loop, &source, &MainQueue::onDeferred, queue.get());
    if (result < 0) {
        return tl::unexpected(Error::posix(-result));
    }
    registration->source.reset(source);
    queue->deferredSource_ = EventSource(std::move(registration));
    queue->deferredSource_.disable();
    if (const Error error = queue->takeArrivals()) {
        return tl::unexpected(error);
    }
    auto turns = Turns::create(*queue);
    if (!turns) {
        return tl::unexpected(turns.error());
    }
    queue->turns_ = std::move(*turns);
    return queue;
}

Error MainQueue::takeArrivals() {
    arrivals_ = Descriptor(::epoll_create1(EPOLL_CLOEXEC));
    if (!arrivals_) {
        return Error::posix(errno);
    }
    auto registration = std::make_shared<EventSource::Registration>(*this, nullptr);
    sd_event_source* source = nullptr;
    const int result = sd_event_add_io(loop_.get(), &source, arrivals_.get(), EPOLLIN,
                                       &MainQueue::onArrival, this);
    if (result < 0) {
        return Error::posix(-result);
    }
    registration->source.reset(source);
    arrivalsSource_ = EventSource(std::move(registration));
    return {};
}

int MainQueue::run() {
    const int result = sd_event_loop(loop_.get());
    if (result < 0) {
        log::write(log::Priority::error, fmt::format("the event loop failed: {}",
                                                     Error::posix(-result).localizedDescription()));
        return EXIT_FAILURE;
    }
    return result;
}

void MainQueue::exit(int code) noexcept {
    exiting_ = true;
    // Refused only when the loop has already ended.
    static_cast<void>(sd_event_exit(loop_.get(), code));
}

void MainQueue::async(Work work) {
    deferred_.push_back(std::move(work));
    // Turning a valid source on takes nothing that could be missing.
    static_cast<void>(
        sd_event_source_set_enabled(deferredSource_.registration_->source.get(), SD_EVENT_ONESHOT));
}

tl::expected<EventSource, Error> MainQueue::watch(int fd, std::uint32_t events,
                                                  std::function<void(std::uint32_t)> handler) {
    auto registration = std::make_shared<EventSource::Registration>(*this, std::move(handler));
    registration->descriptor = fd;
    if (const Error error = list(*registration, events)) {
        return tl::unexpected(error);
    }
    return EventSource(std::move(registration));
}

Error MainQueue::list(EventSource::Registration& registration, std::uint32_t events) {
    epoll_event wanted{};
    wanted.events = events | EPOLLONESHOT;
    wanted.data.ptr = &registration;
    if (::epoll_ctl(arrivals_.get(), registration.listed ? EPOLL_CTL_MOD : EPOLL_CTL_ADD,
                    registration.descriptor, &wanted) != 0) {
        return Error::posix(errno);
    }
    registration.listed = true;
    registration.events = events;
    return {};
}

void MainQueue::unlist(EventSource::Registration& registration) noexcept {
    if (std::exchange(registration.listed, false)) {
        // A descriptor that is listed and still open can always be taken off.
        static_cast<void>(
            ::epoll_ctl(arrivals_.get(), EPOLL_CTL_DEL, registration.descriptor, nullptr));
    }
}

// One a turn: what it leads to may unregister the others. One that is ready still comes behind all
// that became ready while it was served, because it is reported once and listed again afterwards.
void MainQueue::serveArrival() noexcept {
    epoll_event arrived{};
    if (::epoll_wait(arrivals_.get(), &arrived, 1, 0) == 1) {
        const auto served =
            static_cast<EventSource::Registration*>(arrived.data.ptr)->shared_from_this();
        dispatch(*served, arrived.events);
        if (served->listed) { // and open, so that this does not fail
            static_cast<void>(list(*served, served->events));
        }
    }
}

tl::expected<EventSource, Error> MainQueue::addTimer(Work handler) {
    auto registration = std::make_shared<EventSource::Registration>(
        *this, [work = std::move(handler)](std::uint32_t) { work(); });
    sd_event_source* source = nullptr;
    const int result = sd_event_add_time(loop_.get(), &source, CLOCK_MONOTONIC, 0, kTimerAccuracy,
                                         &MainQueue::onTime, registration.get());
    if (result < 0) {
        return tl::unexpected(Error::posix(-result));
    }
    registration->source.reset(source);
    EventSource timer(std::move(registration));
    timer.disable();
    return timer;
}

MainQueue::Clock::time_point MainQueue::now() const noexcept {
    return (inHandler_ ? handlerBegin_ : Clock::now()) - blocked_;
}

std::uint64_t MainQueue::microsecondsOf(Clock::time_point moment) const noexcept {
    using std::chrono::microseconds;
    const auto since = std::chrono::ceil<microseconds>((moment + blocked_).time_since_epoch());
    return static_cast<std::uint64_t>(since.count());
}

template <typename Body> bool MainQueue::guarded(const Body& body) noexcept {
    handlerBegin_ = Clock::now();
    inHandler_ = true;
    leftOut_ = false;
    bool succeeded = false;
    try {
        body();
        succeeded = true;
    } catch (const std::exception& exception) {
        logEscaped(exception.what());
    } catch (...) {
        logEscaped("of a foreign kind");
    }
    inHandler_ = false;
    const Clock::duration taken = Clock::now() - handlerBegin_;
    if (taken > kBlockage || leftOut_) {
        blocked_ += taken;
    }
    return succeeded;
}

void MainQueue::dispatch(EventSource::Registration& registration, std::uint32_t events) noexcept {
    const auto kept = registration.shared_from_this();
    if (guarded([&] { kept->handler(events); })) {
        return;
    }
    unlist(*kept);
    if (kept->source != nullptr) {
        static_cast<void>(sd_event_source_set_enabled(kept->source.get(), SD_EVENT_OFF));
    }
}

void MainQueue::runDeferred() noexcept {
    std::deque<Work> batch;
    batch.swap(deferred_); // what these add comes after other sources had their turn
    while (!batch.empty() && !exiting_) {
        const Work work = std::move(batch.front());
        batch.pop_front();
        static_cast<void>(guarded(work)); // a failure ends this piece of work and nothing else
    }
}

int MainQueue::onTime(sd_event_source* source, std::uint64_t, void* userdata) {
    auto* registration = static_cast<EventSource::Registration*>(userdata);
    MainQueue& queue = registration->queue;
    if (queue.now() < registration->deadline) { // a blockage has moved it
        int result = sd_event_source_set_time(source, queue.microsecondsOf(registration->deadline));
        if (result >= 0) {
            result = sd_event_source_set_enabled(source, SD_EVENT_ONESHOT);
        }
        return result;
    }
    queue.dispatch(*registration, 0);
    return 0;
}

int MainQueue::onArrival(sd_event_source*, int, std::uint32_t, void* userdata) {
    static_cast<MainQueue*>(userdata)->serveArrival();
    return 0;
}

int MainQueue::onDeferred(sd_event_source*, void* userdata) {
    static_cast<MainQueue*>(userdata)->runDeferred();
    return 0;
}

} // namespace qv::xpc
