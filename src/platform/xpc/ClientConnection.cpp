#include "platform/xpc/ClientConnection.h"

#include "platform/xpc/wire/FrameWriter.h"
#include "platform/xpc/wire/SocketIO.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <utility>
#include <vector>

namespace qv::xpc {

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::microseconds;
using std::chrono::milliseconds;

constexpr std::uint32_t kLongestBody = 64U << 20;

Error clientError(ClientErrorCode code, std::string_view text, const Error& cause = {}) {
    std::vector<std::pair<Value, Value>> info;
    info.emplace_back(Value::string(error_key::kLocalizedDescription), Value::string(text));
    if (cause) {
        info.emplace_back(Value::string(error_key::kUnderlyingError), Value::error(cause));
    }
    return {kClientErrorDomain, static_cast<std::int64_t>(code),
            Value::dictionary(std::move(info))};
}

Error unreachable(const std::string& path, int errorNumber) {
    return clientError(ClientErrorCode::unreachable,
                       fmt::format("The service cannot be reached at {}.", path),
                       Error::posix(errorNumber));
}

Error timedOut() {
    return clientError(ClientErrorCode::timedOut, "The service did not answer in time.");
}

Error protocolError(std::string_view text, const Error& cause = {}) {
    return clientError(ClientErrorCode::protocol, text, cause);
}

Error closedByService(ClientErrorCode code, const Error& cause = {}) {
    return clientError(code,
                       code == ClientErrorCode::rejected
                           ? "The service does not accept this program."
                           : "The service closed the connection before it answered.",
                       cause);
}

// The time left, at least nothing.
template <typename Unit> Unit leftUntil(const Clock::time_point& deadline) {
    return std::max(Unit(0), std::chrono::ceil<Unit>(deadline - Clock::now()));
}

// connect() waits for room in the listener's queue as long as sending may take.
Error limitConnecting(int socket, const ClientConnection::Deadline& deadline) {
    if (!deadline) {
        return {};
    }
    const auto left = std::max(microseconds(1), leftUntil<microseconds>(*deadline));
    timeval limit{};
    limit.tv_sec = static_cast<time_t>(left.count() / 1'000'000);
    limit.tv_usec = static_cast<suseconds_t>(left.count() % 1'000'000);
    return ::setsockopt(socket, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit) == 0
               ? Error()
               : Error::posix(errno);
}

} // namespace

ClientConnection::ClientConnection(UniqueFd socket) noexcept
    : socket_(std::move(socket)), reader_(FrameReader::Receiver::client, kLongestBody) {}

tl::expected<ClientConnection, Error> ClientConnection::connect(const std::string& path,
                                                                const Deadline& deadline) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.empty() || path.size() >= sizeof address.sun_path) {
        return tl::unexpected(unreachable(path, path.empty() ? ENOENT : ENAMETOOLONG));
    }
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    ClientConnection connection(UniqueFd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)));
    if (!connection.socket_) {
        return tl::unexpected(unreachable(path, errno));
    }
    if (const Error error = limitConnecting(connection.socket(), deadline)) {
        return tl::unexpected(error);
    }
    int result = 0;
    do {
        // NOLINTNEXTLINE(cppcoreguidelines-pro-type-reinterpret-cast): how sockets take addresses
        result = ::connect(connection.socket(), reinterpret_cast<const sockaddr*>(&address),
                           sizeof address);
    } while (result != 0 && errno == EINTR);
    if (result != 0) {
        return tl::unexpected(errno == EAGAIN ? timedOut() : unreachable(path, errno));
    }
    if (const Error error = connection.receiveGreeting(deadline)) {
        return tl::unexpected(error);
    }
    return connection;
}

tl::expected<Value, Error> ClientConnection::sendMessageWithReply(const Value& dictionary,
                                                                  const Deadline& deadline) {
    if (!dictionary.is(Value::Kind::dictionary)) {
        return tl::unexpected(protocolError("A request must be a dictionary."));
    }
    if (!socket_) {
        return tl::unexpected(closedByService(ClientErrorCode::interrupted));
    }
    const DictionaryView given = dictionary.asDictionary();
    std::vector<std::pair<Value, Value>> pairs;
    pairs.reserve(given.size() + 1);
    for (std::size_t i = 0; i < given.size(); ++i) {
        pairs.emplace_back(given.keys()[i], given.value(i));
    }
    pairs.emplace_back(Value::string("nonce"), nonce_);
    auto body = bodyOfDictionary(Value::dictionary(std::move(pairs)));
    if (!body) {
        return tl::unexpected(protocolError("The request is no property list.", body.error()));
    }
    FrameWriter writer(kFrameHeaderSize + kLongestBody);
    if (const Error error =
            writer.append({FrameKind::request, true, ++sequence_, std::move(*body)})) {
        return tl::unexpected(protocolError("The request is too long.", error));
    }
    auto reply = exchange(writer.pending(), deadline);
    if (!reply) {
        socket_.reset(); // whatever comes now would belong to no request
    }
    return reply;
}

tl::expected<Value, Error> ClientConnection::exchange(std::string_view request,
                                                      const Deadline& deadline) {
    if (const Error error = sendAll(request, deadline)) {
        return tl::unexpected(error);
    }
    const auto reply = receiveFrame(deadline, ClientErrorCode::interrupted);
    if (!reply) {
        return tl::unexpected(reply.error());
    }
    if (reply->kind != FrameKind::reply || reply->sequence != sequence_) {
        return tl::unexpected(protocolError("The service answered something else."));
    }
    auto dictionary = dictionaryOfBody(reply->body);
    if (!dictionary) {
        return tl::unexpected(
            protocolError("The service's reply cannot be read.", dictionary.error()));
    }
    return std::move(*dictionary);
}

Error ClientConnection::receiveGreeting(const Deadline& deadline) {
    const auto greeting = receiveFrame(deadline, ClientErrorCode::rejected);
    if (!greeting) {
        return greeting.error();
    }
    const auto dictionary = dictionaryOfBody(greeting->body);
    const Value* nonce = dictionary ? dictionary->find("nonce") : nullptr;
    if (greeting->kind != FrameKind::greeting || nonce == nullptr ||
        !nonce->is(Value::Kind::data)) {
        return protocolError("The service's greeting cannot be read.",
                             dictionary ? Error() : dictionary.error());
    }
    nonce_ = *nonce;
    return {};
}

Error ClientConnection::sendAll(std::string_view bytes, const Deadline& deadline) {
    while (!bytes.empty()) {
        const auto count = send(socket(), bytes);
        if (!count) {
            return closedByService(ClientErrorCode::interrupted, count.error());
        }
        bytes.remove_prefix(*count);
        if (*count == 0) {
            if (const Error error = wait(POLLOUT, deadline)) {
                return error;
            }
        }
    }
    return {};
}

tl::expected<Frame, Error> ClientConnection::receiveFrame(const Deadline& deadline,
                                                          ClientErrorCode whenClosed) {
    // A reply takes as long as its script: without a deadline one call waits and receives.
    const Waiting waiting = deadline ? Waiting::never : Waiting::forBytes;
    for (;;) {
        const auto piece = receive(socket(), reader_.space(), waiting);
        if (!piece) {
            return tl::unexpected(closedByService(whenClosed, piece.error()));
        }
        if (piece->outcome == Received::Outcome::ended) {
            return tl::unexpected(closedByService(whenClosed));
        }
        if (piece->outcome == Received::Outcome::wouldBlock) {
            if (const Error error = wait(POLLIN, deadline)) {
                return tl::unexpected(error);
            }
            continue;
        }
        auto frame = reader_.advance(piece->count);
        if (!frame) {
            return tl::unexpected(
                protocolError("What the service sent cannot be read.", frame.error()));
        }
        if (*frame) {
            return std::move(**frame);
        }
    }
}

Error ClientConnection::wait(short events, const Deadline& deadline) const {
    pollfd state{socket(), events, 0};
    for (;;) {
        constexpr milliseconds kLongest{60'000};
        const milliseconds left =
            deadline ? std::min(kLongest, leftUntil<milliseconds>(*deadline)) : kLongest;
        const int result = ::poll(&state, 1, static_cast<int>(left.count()));
        if (result > 0) {
            return {};
        }
        if (result < 0 && errno != EINTR) {
            return protocolError("The connection cannot be waited for.", Error::posix(errno));
        }
        if (deadline && *deadline <= Clock::now()) {
            return timedOut();
        }
    }
}

} // namespace qv::xpc
