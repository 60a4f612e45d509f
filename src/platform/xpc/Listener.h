#pragma once

#include "platform/xpc/Connection.h"
#include "platform/xpc/Debts.h"
#include "platform/xpc/Peer.h"
#include "platform/xpc/RateLimiter.h"

#include <chrono>
#include <string>
#include <sys/types.h>
#include <vector>

namespace qv::xpc {

/// Accepts clients of one socket. Finds out who each is before anyone sees it, keeps the limits on
/// their number, and owns the connections until they are closed. A peer that cannot be admitted is
/// closed without a byte read, and a record is logged.
class Listener {
public:
    using EventHandler = std::function<void(std::shared_ptr<Connection>)>;

    /// The listening stream socket of the local domain that the service manager handed over under
    /// `name` (sd_listen_fds(3)); an error when there is none or it is of another kind. Takes every
    /// descriptor handed over and unsets the variables that told of them.
    [[nodiscard]] static tl::expected<std::unique_ptr<Listener>, Error>
    createMachService(const std::string& name, MainQueue& queue, const Limits& limits = {});
    /// The same from a socket that listens already.
    [[nodiscard]] static tl::expected<std::unique_ptr<Listener>, Error>
    withSocket(Descriptor socket, MainQueue& queue, const Limits& limits = {});

    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;
    Listener(Listener&&) = delete;
    Listener& operator=(Listener&&) = delete;
    ~Listener(); ///< bids its connections farewell

    /// Gets each new connection, suspended. It resumes or cancels it, or keeps it to do so in time;
    /// one that it forgets, or throws on, is cancelled.
    void setEventHandler(EventHandler handler);
    void resume();
    /// Has a user answer for what his clients have cost besides the time that the handler took for
    /// those that it cancelled at once; a negative time is given back. Clients of a user who owes
    /// more than Limits::strangers are closed unseen until that is paid off. Root's never are.
    void charge(uid_t user, std::chrono::nanoseconds time);
    /// The path at which clients find it; empty for a socket without a place in the file system.
    [[nodiscard]] std::string path() const;

private:
    Listener(Descriptor socket, MainQueue& queue, const Limits& limits);

    void onReady();
    void shedNewest();
    void admit(Descriptor socket);
    [[nodiscard]] tl::expected<Peer, Error> identify(const Descriptor& socket);
    void present(const std::shared_ptr<Connection>& connection);
    void pause(std::string_view reason);

    MainQueue& queue_;
    Limits limits_;
    Descriptor socket_;
    Descriptor spare_; // given up for a moment to shed a client when no descriptor is left
    EventSource source_;
    EventSource pauseTimer_;
    EventHandler handler_;
    std::vector<std::shared_ptr<Connection>> connections_;
    RateLimiter refusals_;
    Debts debts_; // of users, for clients that were turned away
    bool weakIdentityLogged_ = false;
};

} // namespace qv::xpc
