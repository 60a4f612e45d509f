#include "platform/xpc/ProcessSource.h"

#include "platform/xpc/Turns.h"

#include <cerrno>
#include <fcntl.h>
#include <poll.h>
#include <sys/epoll.h>
#include <utility>

namespace qv::xpc {

ProcessSource::ProcessSource(MainQueue& queue, Descriptor pidfd, MainQueue::Work handler)
    : queue_(queue), pidfd_(std::move(pidfd)),
      handler_(std::make_shared<MainQueue::Work>(std::move(handler))) {}

ProcessSource::~ProcessSource() = default;

tl::expected<std::unique_ptr<ProcessSource>, Error>
ProcessSource::create(MainQueue& queue, int pidfd, MainQueue::Work handler) {
    Descriptor own(::fcntl(pidfd, F_DUPFD_CLOEXEC, 3));
    if (!own) {
        return tl::unexpected(Error::posix(errno));
    }
    std::unique_ptr<ProcessSource> source(
        new ProcessSource(queue, std::move(own), std::move(handler)));
    // The watch is registered here, so that resume() has nothing left that could fail.
    auto watch = queue.watch(source->pidfd_.get(), EPOLLIN,
                             [self = source.get()](std::uint32_t) { self->processEnded(); });
    if (!watch) {
        return tl::unexpected(watch.error());
    }
    source->source_ = std::move(*watch);
    return source;
}

void ProcessSource::resume() {
    resumed_ = true;
    if (ended_) {
        announce();
    }
}

void ProcessSource::cancel() noexcept {
    source_.reset();
    handler_.reset();
}

bool ProcessSource::hasEnded() const noexcept {
    pollfd entry{.fd = pidfd_.get(), .events = POLLIN, .revents = 0};
    return ended_ || ::poll(&entry, 1, 0) == 1;
}

void ProcessSource::processEnded() {
    source_.disable();
    ended_ = true;
    if (resumed_) {
        announce();
    }
}

void ProcessSource::announce() {
    queue_.turns().afterNext([waiting = std::weak_ptr(handler_)] {
        if (const auto handler = waiting.lock()) { // kept: it may destroy this object
            (*handler)();
        }
    });
}

} // namespace qv::xpc
