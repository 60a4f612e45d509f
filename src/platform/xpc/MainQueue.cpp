#include "platform/xpc/MainQueue.h"

#include "platform/foundation/log/Log.h"
#include "platform/xpc/Turns.h"

#include <fmt/core.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <exception>
#include <sys/epoll.h>
#include <utility>

namespace qv::xpc {

namespace {

// A handler that runs longer than this has kept the others waiting. Short ones count as ordinary
// time, or a stream of them would stop every deadline.
constexpr std::chrono::milliseconds kBlockage{100};

void logEscaped(const char* reason) noexcept {
    try {
        log::write(log::Priority::error,
                   fmt::format("an event handler ended with an exception: {}", reason));
    } catch (...) { // NOLINT(bugprone-empty-catch): no memory left for the record
    }
}

} // namespace

MainQueue::MainQueue() noexcept = default;
MainQueue::~MainQueue() = default;

tl::expected<std::unique_ptr<MainQueue>, Error> MainQueue::create() {
    std::unique_ptr<MainQueue> queue(
        new MainQueue()); // NOLINT(cppcoreguidelines-owning-memory): the constructor is private
    queue->arrivals_ = Descriptor(::epoll_create1(EPOLL_CLOEXEC));
    if (!queue->arrivals_) {
        return tl::unexpected(Error::posix(errno));
    }
    auto turns = Turns::create(*queue);
    if (!turns) {
        return tl::unexpected(turns.error());
    }
    queue->turns_ = std::move(*turns);
    return queue;
}

// Handles one descriptor a round: its handler may unregister the others. A descriptor that is ready
// still comes behind all that became ready while it was served, because it is reported once and
// listed again afterwards.
int MainQueue::run() {
    while (!exiting_) {
        epoll_event arrived{};
        const int count = ::epoll_wait(arrivals_.get(), &arrived, 1, longestWait());
        if (count < 0 && errno != EINTR) {
            log::write(log::Priority::error,
                       fmt::format("the event loop failed: {}",
                                   Error::posix(errno).localizedDescription()));
            return EXIT_FAILURE;
        }
        if (count == 1) {
            serve(*static_cast<EventSource::Registration*>(arrived.data.ptr), arrived.events);
        } else {
            listAgain(std::exchange(later_, nullptr));
        }
        runTimers();
        runDeferred();
    }
    return exitCode_;
}

void MainQueue::exit(int code) noexcept {
    exiting_ = true;
    exitCode_ = code;
}

void MainQueue::async(Work work) { deferred_.push_back(std::move(work)); }

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
    registration.events = events;
    if (registration.beingServed && registration.listed) {
        registration.wanted = true;
        return {};
    }
    epoll_event wanted{};
    wanted.events = events | EPOLLONESHOT;
    wanted.data.ptr = &registration;
    if (::epoll_ctl(arrivals_.get(), registration.listed ? EPOLL_CTL_MOD : EPOLL_CTL_ADD,
                    registration.descriptor, &wanted) != 0) {
        return Error::posix(errno);
    }
    registration.listed = true;
    return {};
}

void MainQueue::unlist(EventSource::Registration& registration) noexcept {
    if (std::exchange(registration.listed, false)) {
        // A descriptor that is listed and still open can always be taken off.
        static_cast<void>(
            ::epoll_ctl(arrivals_.get(), EPOLL_CTL_DEL, registration.descriptor, nullptr));
    }
}

void MainQueue::serve(EventSource::Registration& registration, std::uint32_t events) noexcept {
    auto served = registration.shared_from_this();
    served->beingServed = true;
    served->wanted = true;
    dispatch(*served, events);
    listAgain(std::exchange(later_, nullptr));
    if (served->wanted && served->events == 0) {
        later_ = std::move(served);
    } else {
        listAgain(std::move(served));
    }
}

void MainQueue::listAgain(std::shared_ptr<EventSource::Registration> served) noexcept {
    if (served != nullptr) {
        served->beingServed = false;
        if (served->listed && served->wanted) { // it is open, so this does not fail
            static_cast<void>(list(*served, served->events));
        }
    }
}

void MainQueue::arm(EventSource::Registration& timer, Clock::time_point deadline) {
    disarm(timer);
    timers_.emplace(deadline, &timer);
    timer.deadline = deadline;
    timer.armed = true;
}

void MainQueue::disarm(EventSource::Registration& timer) noexcept {
    if (std::exchange(timer.armed, false)) {
        timers_.erase({timer.deadline, &timer});
    }
}

int MainQueue::longestWait() const noexcept {
    using std::chrono::milliseconds;
    if (!deferred_.empty() || later_ != nullptr) {
        return 0;
    }
    if (timers_.empty()) {
        return -1;
    }
    const auto left = std::chrono::ceil<milliseconds>(timers_.begin()->first - now());
    return static_cast<int>(std::clamp(left, milliseconds(0), milliseconds(INT_MAX)).count());
}

void MainQueue::runTimers() noexcept {
    // Handles each timer once: a handler may arm its timer again for a moment that has passed.
    for (std::size_t most = timers_.size();
         most > 0 && !exiting_ && !timers_.empty() && timers_.begin()->first <= now(); --most) {
        EventSource::Registration& due = *timers_.begin()->second;
        disarm(due);
        dispatch(due, 0);
    }
}

EventSource MainQueue::addTimer(Work handler) {
    auto registration = std::make_shared<EventSource::Registration>(
        *this, [work = std::move(handler)](std::uint32_t) { work(); });
    return EventSource(std::move(registration));
}

MainQueue::Clock::time_point MainQueue::now() const noexcept {
    return (inHandler_ ? handlerBegin_ : Clock::now()) - blocked_;
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
    disarm(*kept);
}

void MainQueue::runDeferred() noexcept {
    if (deferred_.empty()) {
        return;
    }
    std::deque<Work> batch;
    batch.swap(deferred_); // work that these add comes after other sources had their turn
    while (!batch.empty() && !exiting_) {
        const Work work = std::move(batch.front());
        batch.pop_front();
        static_cast<void>(guarded(work)); // a failure ends this piece of work and nothing else
    }
}

} // namespace qv::xpc
