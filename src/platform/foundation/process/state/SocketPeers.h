#pragma once

#include "platform/foundation/values/Error.h"

#include <tl/expected.hpp>

#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace qv {

/// A process that is connected to a socket.
struct SocketPeer {
    std::optional<pid_t> process; ///< none: this process may not see whose it is
    std::optional<uid_t> user;    ///< of that process
    std::string program;          ///< its path; empty if it cannot be told
    bool isWaiting = false;       ///< nobody has accepted it yet, or read what it has sent
};

/// A stream socket that listens at a path.
struct ListeningSocket {
    std::vector<SocketPeer> peers;
    /// Connections that nobody has accepted and that are not among the peers: the kernel names none
    /// of them if there are more than about 8,100, as many as fit into its longest message.
    std::size_t unnamed = 0;
};

/// The socket that listens at a path, as the kernel's socket diagnostics have it (sock_diag(7)), in
/// this network namespace. None: nobody listens there. Errors: NSPOSIXErrorDomain.
[[nodiscard]] tl::expected<std::optional<ListeningSocket>, Error>
listeningSocketAt(const std::string& path);

/// Whether a stream socket is bound at a path, in this network namespace or another one. Its owner
/// does not notice the question. Errors: NSPOSIXErrorDomain.
[[nodiscard]] tl::expected<bool, Error> isBoundAt(const std::string& path);

} // namespace qv
