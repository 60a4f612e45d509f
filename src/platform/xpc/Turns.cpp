#include "platform/xpc/Turns.h"

#include "platform/xpc/MainQueue.h"

#include <algorithm>
#include <cerrno>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <utility>

namespace qv::xpc {

tl::expected<std::unique_ptr<Turns>, Error> Turns::create(MainQueue& queue) {
    std::unique_ptr<Turns> turns(
        new Turns(queue)); // NOLINT(cppcoreguidelines-owning-memory): the constructor is private
    turns->always_ = Descriptor(::eventfd(1, EFD_CLOEXEC));
    if (!turns->always_) {
        return tl::unexpected(Error::posix(errno));
    }
    auto source = queue.watch(turns->always_.get(), 0,
                              [self = turns.get()](std::uint32_t) { self->beginNext(); });
    if (!source) {
        return tl::unexpected(source.error());
    }
    turns->source_ = std::move(*source);
    turns->source_.disable();
    return turns;
}

Error Turns::enter(uid_t user, const void* request, Work begin) {
    if (users_.empty()) {
        if (const Error error = source_.setEvents(EPOLLIN)) {
            return error;
        }
    }
    auto place = std::ranges::find(users_, user, &User::id);
    if (place == users_.end()) {
        place = users_.insert(place, User{user, {}});
    }
    place->waiting.push_back({request, std::move(begin)});
    return {};
}

void Turns::leave(uid_t user, const void* request) noexcept {
    const auto place = std::ranges::find(users_, user, &User::id);
    if (place == users_.end()) {
        return;
    }
    std::erase_if(place->waiting, [&](const Waiting& each) { return each.request == request; });
    if (place->waiting.empty()) {
        users_.erase(place);
    }
    if (users_.empty() && afterNext_.empty()) {
        source_.disable();
    }
}

void Turns::afterNext(Work work) {
    if (users_.empty()) {
        queue_.async(std::move(work));
    } else {
        afterNext_.push_back(std::move(work));
    }
}

// The next turn comes when the queue has served all that arrived during this one.
void Turns::beginNext() {
    queue_.leaveOutHandler();
    if (!users_.empty()) { // the last one may have given up its turn
        if (users_.front().id == last_) {
            users_.splice(users_.end(), users_, users_.begin());
        }
        User& user = users_.front();
        last_ = user.id;
        const Work begin = std::move(user.waiting.front().begin);
        user.waiting.pop_front();
        if (user.waiting.empty()) {
            users_.pop_front();
        }
        begin();
    }
    if (users_.empty()) {
        source_.disable();
    }
    for (Work& work : std::exchange(afterNext_, {})) {
        queue_.async(std::move(work));
    }
}

} // namespace qv::xpc
