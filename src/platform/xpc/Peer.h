#pragma once

#include "platform/foundation/os/ProcessIdentity.h"
#include "platform/foundation/values/Error.h"

#include <tl/expected.hpp>

#include <optional>
#include <sys/types.h>

namespace qv::xpc {

/// The process at the other end of an accepted socket, with its credentials.
struct Peer {
    ProcessIdentity::Shared process; ///< never null
    /// The kernel named the peer by its PID only; see peerByPID().
    bool isFoundByPID = false;
};

/// Finds the peer by SO_PEERCRED and SO_PEERPIDFD, which must agree; on kernels without the latter
/// as peerByPID() does. An identity that cannot be found out is an error, never user 0.
[[nodiscard]] tl::expected<Peer, Error> peerOf(int socket);
/// The weaker way: opens the process that has the PID of SO_PEERCRED now, and refuses one that was
/// started after this call began and so cannot have connected.
[[nodiscard]] tl::expected<Peer, Error> peerByPID(int socket);
/// The effective user alone, for a look that costs next to nothing.
[[nodiscard]] std::optional<uid_t> userOfPeer(int socket);

} // namespace qv::xpc
