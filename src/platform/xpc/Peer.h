#pragma once

#include "platform/foundation/os/Descriptor.h"
#include "platform/foundation/values/Error.h"

#include <tl/expected.hpp>

#include <cstdint>
#include <optional>
#include <sys/types.h>

namespace qv::xpc {

/// Who connected, as the kernel noted it at the moment of connect. There is no default: an identity
/// that could not be found out is an error, never user 0.
struct PeerCredentials {
    PeerCredentials(pid_t thePid, uid_t theUid, gid_t theGid, int thePidfd) noexcept
        : pid(thePid), uid(theUid), gid(theGid), pidfd(thePidfd) {}
    pid_t pid;
    uid_t uid; ///< effective
    gid_t gid; ///< effective
    int pidfd; ///< borrowed: valid as long as the connection
};

/// The process at the other end of an accepted socket. Its pidfd names that very process for good,
/// whatever becomes of the process ID.
class Peer {
public:
    /// From SO_PEERCRED and SO_PEERPIDFD, which must agree; on kernels without the latter as
    /// ofProcess() does it.
    [[nodiscard]] static tl::expected<Peer, Error> ofSocket(int socket);
    /// The weaker way: opens the process that has the ID of SO_PEERCRED now, and refuses one that
    /// was started after this call began and so cannot have connected.
    [[nodiscard]] static tl::expected<Peer, Error> ofProcess(int socket);
    /// The user alone, for a look that costs next to nothing.
    [[nodiscard]] static std::optional<uid_t> userOfSocket(int socket);

    [[nodiscard]] const PeerCredentials& credentials() const noexcept { return credentials_; }
    /// False once the process has ended.
    [[nodiscard]] bool isAlive() const noexcept;
    /// Made in the weaker way.
    [[nodiscard]] bool isFromProcessID() const noexcept { return fromProcessID_; }

private:
    Peer(Descriptor pidfd, const PeerCredentials& credentials) noexcept;
    Descriptor pidfd_;
    bool fromProcessID_ = false;
    PeerCredentials credentials_;
};

} // namespace qv::xpc
