#pragma once

#include "platform/foundation/values/Error.h"

#include <tl/expected.hpp>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <sys/types.h>

namespace qv::xpc {

/// One piece of a stream.
struct Received {
    enum class Outcome : std::uint8_t {
        bytes,      ///< `count` of them, at least one
        wouldBlock, ///< nothing there at the moment
        ended,      ///< the other side has closed
    };
    Outcome outcome = Outcome::wouldBlock;
    std::size_t count = 0;
    std::optional<pid_t> sender; ///< the process that wrote these bytes, where the kernel said so
};

enum class Waiting : std::uint8_t { never, forBytes };

/// Receives a piece. Needs SO_PASSCRED on the socket for `sender`; the kernel never merges bytes of
/// two senders into one piece. Descriptors that come along are closed and the piece is refused; so
/// is a piece whose control data did not fit. Waits, where allowed to, only on a blocking socket.
[[nodiscard]] tl::expected<Received, Error> receive(int socket, std::span<char> space,
                                                    Waiting waiting = Waiting::never);

/// Sends without waiting and without SIGPIPE. Returns the number of bytes that went; 0 when the
/// socket is full.
[[nodiscard]] tl::expected<std::size_t, Error> send(int socket, std::string_view bytes);

} // namespace qv::xpc
