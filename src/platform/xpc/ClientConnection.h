#pragma once

#include "platform/foundation/files/UniqueFd.h"
#include "platform/foundation/values/Error.h"
#include "platform/xpc/ClientError.h"
#include "platform/xpc/wire/FrameReader.h"

#include <tl/expected.hpp>

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace qv::xpc {

/// A client's end of a connection. Blocks; no signal is raised and nothing is left to a child
/// process. Use from one thread at a time.
class ClientConnection {
public:
    using Deadline = std::optional<std::chrono::steady_clock::time_point>; ///< none: wait forever

    /// Connects and waits until the service has accepted this process.
    [[nodiscard]] static tl::expected<ClientConnection, Error>
    connect(const std::string& path, const Deadline& deadline = std::nullopt);

    /// Sends a request and waits for its reply. `dictionary` goes out with the connection's
    /// "nonce" added. After any error but that of a request which cannot be sent the connection is
    /// closed and further calls fail.
    [[nodiscard]] tl::expected<Value, Error>
    sendMessageWithReply(const Value& dictionary, const Deadline& deadline = std::nullopt);

    /// The socket, borrowed.
    [[nodiscard]] int socket() const noexcept { return socket_.get(); }

private:
    explicit ClientConnection(UniqueFd socket) noexcept;
    [[nodiscard]] Error receiveGreeting(const Deadline& deadline);
    [[nodiscard]] tl::expected<Value, Error> exchange(std::string_view request,
                                                      const Deadline& deadline);
    [[nodiscard]] Error sendAll(std::string_view bytes, const Deadline& deadline);
    [[nodiscard]] tl::expected<Frame, Error> receiveFrame(const Deadline& deadline,
                                                          ClientErrorCode whenClosed);
    [[nodiscard]] Error wait(short events, const Deadline& deadline) const;

    UniqueFd socket_;
    FrameReader reader_;
    Value nonce_;
    std::uint64_t sequence_ = 0;
};

} // namespace qv::xpc
