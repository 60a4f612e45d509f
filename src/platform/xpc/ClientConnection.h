#pragma once

#include "platform/foundation/os/Deadline.h"
#include "platform/foundation/os/Descriptor.h"
#include "platform/foundation/values/Error.h"
#include "platform/xpc/ClientError.h"
#include "platform/xpc/wire/FrameReader.h"
#include "platform/xpc/wire/FrameWriter.h"

#include <tl/expected.hpp>

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace qv::xpc {

/// The time for which a client waits.
struct WaitLimits {
    WaitLimits() = default;
    // NOLINTNEXTLINE(google-explicit-constructor): a deadline is a limit
    WaitLimits(const Deadline& end, int cancel = -1) : deadline(end), cancelDescriptor(cancel) {}

    Deadline deadline;
    int cancelDescriptor = -1; ///< nothing more is waited for once this can be read; -1: none

    [[nodiscard]] bool canEndWait() const noexcept {
        return deadline.canPass() || cancelDescriptor >= 0;
    }
};

/// A client's end of a connection. Blocks; no signal is raised and nothing is left to a child
/// process. A process with a launch mark must have been prepared (see LaunchMark). Use from one
/// thread at a time.
///
/// The service leaves with the last client that it served, and closes the connections of all others
/// then. A request of which certainly nothing was executed is therefore sent again over a new
/// connection, a limited number of times and within the deadline. That is certain
/// - after the service's farewell,
/// - if the service closed before the last byte of the request went out,
/// - after ECONNRESET without a byte of a reply: the kernel reports it if bytes of ours were unread
///   when the service closed, so the request was never whole there.
/// If the connection just ends after the request, the service may have executed it.
class ClientConnection {
public:
    /// Connects and waits until the service has accepted this process.
    [[nodiscard]] static tl::expected<ClientConnection, Error>
    connect(const std::string& path, const WaitLimits& limits = {});

    /// Sends a request and waits for its reply. `dictionary` goes out with the connection's
    /// "nonce" added. After any error but that of a request which cannot be sent the connection is
    /// closed, and the next call connects anew.
    [[nodiscard]] tl::expected<Value, Error> sendMessageWithReply(const Value& dictionary,
                                                                  const WaitLimits& limits = {});

    /// The socket, borrowed; another one after a call that connected anew.
    [[nodiscard]] int socket() const noexcept { return socket_.get(); }

private:
    /// The error of an attempt, and whether a new one may be made: certainly nothing was executed.
    struct Failure {
        Error error;
        bool mayRepeat = false;
    };
    using Step = std::optional<Failure>;

    explicit ClientConnection(std::string path);
    template <typename Attempt>
    [[nodiscard]] Error repeat(const WaitLimits& limits, const Attempt& attempt);
    [[nodiscard]] Step open(const WaitLimits& limits);
    [[nodiscard]] Step receiveGreeting(const WaitLimits& limits);
    [[nodiscard]] Step exchange(const Value& dictionary, const WaitLimits& limits, Value& reply);
    [[nodiscard]] tl::expected<FrameWriter, Error> requestOf(const Value& dictionary);
    [[nodiscard]] Step sendAll(std::string_view bytes, const WaitLimits& limits);
    [[nodiscard]] tl::expected<Frame, Failure> receiveFrame(const WaitLimits& limits,
                                                            ClientErrorCode whenClosed);
    [[nodiscard]] Error wait(short events, const WaitLimits& limits) const;

    std::string path_;
    Descriptor socket_;
    FrameReader reader_;
    Value nonce_;
    std::uint64_t sequence_ = 0;
};

} // namespace qv::xpc
