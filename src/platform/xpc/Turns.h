#pragma once

#include "platform/foundation/os/Descriptor.h"
#include "platform/xpc/EventSource.h"

#include <tl/expected.hpp>

#include <deque>
#include <functional>
#include <list>
#include <memory>
#include <optional>
#include <sys/types.h>
#include <vector>

namespace qv::xpc {

class MainQueue;

/// Decides whose request is begun next: users who have requests waiting take turns, and the
/// requests of one user are begun in the order in which they came. Between two requests the queue
/// serves every descriptor that has become ready meanwhile, so a user who keeps many requests
/// waiting delays another user by one of them at most. Used on the queue only.
class Turns {
public:
    using Work = std::function<void()>;

    [[nodiscard]] static tl::expected<std::unique_ptr<Turns>, Error> create(MainQueue& queue);
    Turns(const Turns&) = delete;
    Turns& operator=(const Turns&) = delete;
    Turns(Turns&&) = delete;
    Turns& operator=(Turns&&) = delete;
    ~Turns() = default;

    /// `begin` runs when the request's turn has come. It may not throw. `request` only names the
    /// request for leave().
    [[nodiscard]] Error enter(uid_t user, const void* request, Work begin);
    /// The request gives up its turn; does nothing if it has had it.
    void leave(uid_t user, const void* request) noexcept;
    /// Runs `work` later: after the next request if one waits, so that a request which has arrived
    /// counts before an event that came after it.
    void afterNext(Work work);

private:
    struct Waiting {
        const void* request;
        Work begin;
    };
    struct User {
        uid_t id;
        std::deque<Waiting> waiting; ///< never empty
    };

    explicit Turns(MainQueue& queue) noexcept : queue_(queue) {}
    void beginNext();

    MainQueue& queue_;
    Descriptor always_;  ///< always readable; on the queue while a request waits
    EventSource source_; // destroyed before always_
    std::list<User> users_;
    std::optional<uid_t> last_; ///< the user who had the last turn
    std::vector<Work> afterNext_;
};

} // namespace qv::xpc
