#pragma once

#include <list>
#include <memory>
#include <sys/types.h>

namespace qv {

/// The process at the other end of a connection, as the kernel told it. Cannot be made without all
/// of it, so that "could not find out" never reads like user 0.
struct ConnectedPeer {
    /// `pidfd` is borrowed (SO_PEERPIDFD); the rest is SO_PEERCRED: effective user and group at the
    /// moment of connect.
    ConnectedPeer(pid_t thePid, int thePidfd, uid_t theUid, gid_t theGid) noexcept
        : pid(thePid), pidfd(thePidfd), uid(theUid), gid(theGid) {}

    pid_t pid;
    int pidfd;
    uid_t uid;
    gid_t gid;
};

class RegisteredPeer;

/// The peers that are being checked. A look-up by process number takes the registered peer of that
/// number, and with it the very process that connected, not whatever holds the number now. For one
/// thread.
class ConnectedPeers {
public:
    /// The registration ends with its owner; the borrowed pidfd must live until then. When a number
    /// is registered twice the later registration counts.
    [[nodiscard]] RegisteredPeer add(const ConnectedPeer& peer);

    /// Null when no peer of that number is registered.
    [[nodiscard]] const ConnectedPeer* find(pid_t pid) const noexcept;

private:
    friend class RegisteredPeer;
    std::shared_ptr<std::list<ConnectedPeer>> peers_ = std::make_shared<std::list<ConnectedPeer>>();
};

/// Owns a registration. May outlive the ConnectedPeers it came from.
class RegisteredPeer {
public:
    RegisteredPeer(RegisteredPeer&& other) noexcept = default;
    RegisteredPeer& operator=(RegisteredPeer&& other) = delete;
    RegisteredPeer(const RegisteredPeer&) = delete;
    RegisteredPeer& operator=(const RegisteredPeer&) = delete;
    ~RegisteredPeer();

private:
    friend class ConnectedPeers;
    using Peers = std::list<ConnectedPeer>;
    RegisteredPeer(std::shared_ptr<Peers> peers, Peers::iterator position) noexcept
        : peers_(std::move(peers)), position_(position) {}

    std::shared_ptr<Peers> peers_; // null once moved from
    Peers::iterator position_;
};

} // namespace qv
