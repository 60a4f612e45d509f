#include "platform/xpc/ClientConnection.h"

#include "platform/foundation/log/Log.h"
#include "platform/foundation/os/OwnProgram.h"
#include "platform/foundation/process/state/LaunchMark.h"
#include "platform/xpc/wire/SocketIO.h"

#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <thread>
#include <utility>
#include <vector>

namespace qv::xpc {

namespace {

using std::chrono::milliseconds;

constexpr std::uint32_t kLongestBody = 64U << 20;
// The attempts take some half a second in all, against a service that dies at each connection.
constexpr int kMostAttempts = 12;
constexpr milliseconds kFirstPause{1}; // but none before the second attempt
constexpr milliseconds kLongestPause{100};

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

Error cancelled() {
    return clientError(ClientErrorCode::cancelled, "The caller waits no longer for the service.");
}

Error protocolError(std::string_view text, const Error& cause = {}) {
    return clientError(ClientErrorCode::protocol, text, cause);
}

std::string ownProgram() {
    const std::string path = ownProgramPath();
    return path.empty() ? "FILE" : log::foreign(path);
}

Error closedByService(ClientErrorCode code, const Error& cause = {}) {
    switch (code) {
    case ClientErrorCode::rejected:
        return clientError(code,
                           fmt::format("The service does not accept this program; `qvcatalog "
                                       "verify --explain {}` and the service's log tell why.",
                                       ownProgram()),
                           cause);
    case ClientErrorCode::notExecuted:
        return clientError(code,
                           "The service closed the connection each time before it took up the "
                           "request, which was not executed.",
                           cause);
    default:
        return clientError(code,
                           "The service closed the connection before it answered. Whether it "
                           "executed the request is not known.",
                           cause);
    }
}

bool isReset(const Error& error) {
    return error.domain() == error_domain::kPOSIX && error.code() == ECONNRESET;
}

// connect() waits for room in the listener's queue as long as sending may take. It waits briefly at
// a time: in a marked process no signal is handled meanwhile.
int connectOnce(int socket, const sockaddr_un& address, const Deadline& deadline) {
    constexpr milliseconds kLongest{1'000};
    const auto wait = std::max(milliseconds(1), deadline.left(kLongest));
    const timeval limit{static_cast<time_t>(wait.count() / 1'000),
                        static_cast<suseconds_t>(wait.count() % 1'000 * 1'000)};
    if (::setsockopt(socket, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit) != 0) {
        return errno;
    }
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-reinterpret-cast): how sockets take addresses
    const auto* place = reinterpret_cast<const sockaddr*>(&address);
    return ::connect(socket, place, sizeof address) == 0 ? 0 : errno;
}

Error connectTo(int socket, const sockaddr_un& address, const WaitLimits& limits) {
    for (;;) {
        int failure = 0;
        if (const Error error =
                showLaunchMark([&] { failure = connectOnce(socket, address, limits.deadline); })) {
            return clientError(ClientErrorCode::unfit,
                               fmt::format("This process cannot be a client of the service: {}.",
                                           error.localizedDescription()));
        }
        if (failure != EAGAIN && failure != EINTR) {
            return failure == 0 ? Error()
                                : unreachable(static_cast<const char*>(address.sun_path), failure);
        }
        if (limits.deadline.hasPassed()) {
            return timedOut();
        }
        pollfd state{limits.cancelDescriptor, POLLIN, 0};
        if (::poll(&state, 1, 0) > 0) {
            return cancelled();
        }
    }
}

} // namespace

ClientConnection::ClientConnection(std::string path)
    : path_(std::move(path)), reader_(FrameReader::Receiver::client, kLongestBody) {}

tl::expected<ClientConnection, Error> ClientConnection::connect(const std::string& path,
                                                                const WaitLimits& limits) {
    ClientConnection connection(path);
    if (const Error error = connection.repeat(limits, [&] { return connection.open(limits); })) {
        return tl::unexpected(error);
    }
    return connection;
}

tl::expected<Value, Error> ClientConnection::sendMessageWithReply(const Value& dictionary,
                                                                  const WaitLimits& limits) {
    Value reply;
    if (const Error error = repeat(limits, [&]() -> Step {
            if (!socket_) {
                if (auto failure = open(limits)) {
                    return failure;
                }
            }
            return exchange(dictionary, limits, reply);
        })) {
        return tl::unexpected(error);
    }
    return reply;
}

template <typename Attempt>
Error ClientConnection::repeat(const WaitLimits& limits, const Attempt& attempt) {
    milliseconds pause{0};
    for (int attempts = 1;; ++attempts) {
        const Step failure = attempt();
        if (!failure) {
            return {};
        }
        if (!failure->mayRepeat || attempts == kMostAttempts) {
            return failure->error;
        }
        if (limits.deadline.left(pause + milliseconds(1)) <= pause) {
            return timedOut();
        }
        std::this_thread::sleep_for(pause);
        pause = std::clamp(2 * pause, kFirstPause, kLongestPause);
    }
}

ClientConnection::Step ClientConnection::open(const WaitLimits& limits) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path_.empty() || path_.size() >= sizeof address.sun_path) {
        return Failure{unreachable(path_, path_.empty() ? ENOENT : ENAMETOOLONG)};
    }
    std::memcpy(address.sun_path, path_.c_str(), path_.size() + 1);
    reader_.reset();
    sequence_ = 0;
    Descriptor fresh(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!fresh) {
        return Failure{unreachable(path_, errno)};
    }
    if (const Error error = connectTo(fresh.get(), address, limits)) {
        return Failure{error};
    }
    socket_ = std::move(fresh);
    auto failure = receiveGreeting(limits);
    if (failure) {
        socket_.reset();
    }
    return failure;
}

ClientConnection::Step ClientConnection::exchange(const Value& dictionary, const WaitLimits& limits,
                                                  Value& reply) {
    const auto request = requestOf(dictionary);
    if (!request) {
        return Failure{request.error()};
    }
    auto failure = sendAll(request->pending(), limits);
    if (!failure) {
        const auto frame = receiveFrame(limits, ClientErrorCode::interrupted);
        if (!frame) {
            failure = frame.error();
        } else if (frame->kind != FrameKind::reply || frame->sequence != sequence_) {
            failure = Failure{protocolError("The service answered something else.")};
        } else if (auto answer = dictionaryOfBody(frame->body); answer) {
            reply = std::move(*answer);
        } else {
            failure = Failure{protocolError("The service's reply cannot be read.", answer.error())};
        }
    }
    if (failure) {
        socket_.reset(); // bytes that come now would belong to no request
    }
    return failure;
}

tl::expected<FrameWriter, Error> ClientConnection::requestOf(const Value& dictionary) {
    if (!dictionary.is(Value::Kind::dictionary)) {
        return tl::unexpected(protocolError("A request must be a dictionary."));
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
        return tl::unexpected(protocolError("The request is not a property list.", body.error()));
    }
    FrameWriter writer(kFrameHeaderSize + kLongestBody);
    if (const Error error =
            writer.append({FrameKind::request, true, ++sequence_, std::move(*body)})) {
        return tl::unexpected(protocolError("The request is too long.", error));
    }
    return writer;
}

ClientConnection::Step ClientConnection::receiveGreeting(const WaitLimits& limits) {
    const auto greeting = receiveFrame(limits, ClientErrorCode::rejected);
    if (!greeting) {
        return greeting.error();
    }
    const auto dictionary = dictionaryOfBody(greeting->body);
    const Value* nonce = dictionary ? dictionary->find("nonce") : nullptr;
    if (greeting->kind != FrameKind::greeting || nonce == nullptr ||
        !nonce->is(Value::Kind::data)) {
        return Failure{protocolError("The service's greeting cannot be read.",
                                     dictionary ? Error() : dictionary.error())};
    }
    nonce_ = *nonce;
    return std::nullopt;
}

ClientConnection::Step ClientConnection::sendAll(std::string_view bytes, const WaitLimits& limits) {
    while (!bytes.empty()) {
        const auto count = send(socket(), bytes);
        if (!count) {
            return Failure{closedByService(ClientErrorCode::notExecuted, count.error()), true};
        }
        bytes.remove_prefix(*count);
        if (*count == 0) {
            if (const Error error = wait(POLLOUT, limits)) {
                return Failure{error};
            }
        }
    }
    return std::nullopt;
}

tl::expected<Frame, ClientConnection::Failure>
ClientConnection::receiveFrame(const WaitLimits& limits, ClientErrorCode whenClosed) {
    // A reply takes as long as its script: without limits one call waits and receives.
    const Waiting waiting = limits.canEndWait() ? Waiting::never : Waiting::forBytes;
    for (;;) {
        const auto piece = receive(socket(), reader_.space(), waiting);
        if (!piece) {
            const bool unread = isReset(piece.error()) && !reader_.midFrame();
            return tl::unexpected(Failure{
                closedByService(unread ? ClientErrorCode::notExecuted : whenClosed, piece.error()),
                unread});
        }
        if (piece->outcome == Received::Outcome::ended) {
            return tl::unexpected(Failure{closedByService(whenClosed)});
        }
        if (piece->outcome == Received::Outcome::wouldBlock) {
            if (const Error error = wait(POLLIN, limits)) {
                return tl::unexpected(Failure{error});
            }
            continue;
        }
        auto frame = reader_.advance(piece->count);
        if (!frame) {
            return tl::unexpected(
                Failure{protocolError("What the service sent cannot be read.", frame.error())});
        }
        if (*frame && (*frame)->kind == FrameKind::farewell) {
            return tl::unexpected(Failure{closedByService(ClientErrorCode::notExecuted), true});
        }
        if (*frame) {
            return std::move(**frame);
        }
    }
}

Error ClientConnection::wait(short events, const WaitLimits& limits) const {
    std::array<pollfd, 2> states{pollfd{socket(), events, 0},
                                 pollfd{limits.cancelDescriptor, POLLIN, 0}};
    for (;;) {
        const int result = ::poll(states.data(), states.size(), limits.deadline.pollTimeout());
        if (result > 0) {
            return states[0].revents == 0 ? cancelled() : Error();
        }
        if (result < 0 && errno != EINTR) {
            return protocolError("The connection cannot be waited for.", Error::posix(errno));
        }
        if (limits.deadline.hasPassed()) {
            return timedOut();
        }
    }
}

} // namespace qv::xpc
