#include "platform/xpc/Listener.h"

#include "platform/foundation/files/item/SocketPlace.h"
#include "platform/foundation/log/Log.h"
#include "platform/xpc/HandedOver.h"
#include "platform/xpc/wire/WireError.h"

#include <fmt/core.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <utility>

namespace qv::xpc {

namespace {

constexpr int kPassRights = 83; // SO_PASSRIGHTS, Linux 6.16; the C library's headers are older
constexpr std::chrono::milliseconds kPause{100};
constexpr std::chrono::seconds kRefusalInterval{1};

const int kAcceptFlags = SOCK_CLOEXEC | SOCK_NONBLOCK;

Descriptor freshSpare() { return Descriptor(::eventfd(0, EFD_CLOEXEC)); }

// Every piece tells its sender, and none may bring descriptors.
Error setMessageOptions(int socket) {
    const int on = 1;
    if (::setsockopt(socket, SOL_SOCKET, SO_PASSCRED, &on, sizeof on) != 0) {
        return Error::posix(errno);
    }
    const int off = 0;
    if (::setsockopt(socket, SOL_SOCKET, kPassRights, &off, sizeof off) != 0 &&
        errno != ENOPROTOOPT) { // older kernels: receive() refuses descriptors
        return Error::posix(errno);
    }
    return {};
}

Error prepareListening(int socket) {
    if (const Error error = setMessageOptions(socket)) {
        return error;
    }
    const int flags = ::fcntl(socket, F_GETFL);
    if (flags < 0 || ::fcntl(socket, F_SETFL, flags | O_NONBLOCK) != 0 ||
        ::fcntl(socket, F_SETFD, FD_CLOEXEC) != 0) {
        return Error::posix(errno);
    }
    return {};
}

void logRefusal(std::string_view record) { log::write(log::Priority::error, record); }

} // namespace

Listener::Listener(Descriptor socket, MainQueue& queue, const Limits& limits)
    : queue_(queue), limits_(limits), socket_(std::move(socket)), spare_(freshSpare()),
      refusals_(queue, limits.refusalsLogged, kRefusalInterval, logRefusal),
      debts_(limits.strangers) {}

Listener::~Listener() {
    for (const auto& connection : std::exchange(connections_, {})) {
        connection->setClosedHandler(nullptr);
        connection->bidFarewell();
    }
}

tl::expected<std::unique_ptr<Listener>, Error>
Listener::createMachService(const std::string& name, MainQueue& queue, const Limits& limits) {
    auto handedOver = takeHandedOver();
    if (!handedOver) {
        return tl::unexpected(handedOver.error());
    }
    Descriptor found;
    std::size_t matches = 0;
    for (auto& [itsName, socket] : *handedOver) {
        if (name == itsName) {
            found = std::move(socket);
            ++matches;
        }
    }
    if (matches != 1) {
        return tl::unexpected(
            wireError(WireErrorCode::noListener,
                      fmt::format("the service manager handed over {} sockets named {}, not one",
                                  matches, name)));
    }
    return withSocket(std::move(found), queue, limits);
}

tl::expected<std::unique_ptr<Listener>, Error>
Listener::withSocket(Descriptor socket, MainQueue& queue, const Limits& limits) {
    if (!isListening(socket.get())) {
        return tl::unexpected(
            wireError(WireErrorCode::noListener,
                      "the descriptor is not a listening stream socket of the local domain"));
    }
    if (const Error error = prepareListening(socket.get())) {
        return tl::unexpected(error);
    }
    std::unique_ptr<Listener> listener(new Listener(std::move(socket), queue, limits));
    auto source = queue.watch(listener->socket_.get(), 0,
                              [self = listener.get()](std::uint32_t) { self->onReady(); });
    if (!source) {
        return tl::unexpected(source.error());
    }
    listener->source_ = std::move(*source);
    return listener;
}

void Listener::setEventHandler(EventHandler handler) { handler_ = std::move(handler); }

void Listener::resume() {
    if (const Error error = source_.setEvents(EPOLLIN)) {
        pause(error.localizedDescription());
    }
}

std::string Listener::path() const { return socketPath(socket_.get()); }

// Accepts one client a turn, as the decision about it may take a while.
void Listener::onReady() {
    Descriptor socket(::accept4(socket_.get(), nullptr, nullptr, kAcceptFlags));
    if (socket) {
        admit(std::move(socket));
        return;
    }
    switch (errno) {
    case EAGAIN:
    case EINTR:
    case ECONNABORTED:
        return;
    case EMFILE:
    case ENFILE:
        shedNewest();
        return;
    default:
        pause(Error::posix(errno).localizedDescription());
        return;
    }
}

// Sheds a client when no descriptor is left: otherwise it would stay in the queue and wake the loop
// forever.
void Listener::shedNewest() {
    const Error cause = Error::posix(errno);
    spare_.reset();
    const bool shed =
        static_cast<bool>(Descriptor(::accept4(socket_.get(), nullptr, nullptr, kAcceptFlags)));
    spare_ = freshSpare();
    if (!shed) {
        pause(cause.localizedDescription());
        return;
    }
    refusals_.log(fmt::format("Connection refused: {}", cause.localizedDescription()));
}

void Listener::admit(Descriptor socket) {
    const auto refuse = [&](std::string_view why) {
        refusals_.log(fmt::format("Connection refused: {}", why));
    };
    if (connections_.size() >= limits_.connections) {
        refuse(fmt::format("{} are open", connections_.size()));
        return;
    }
    const auto unverified = std::ranges::count_if(
        connections_, [](const auto& connection) { return connection->isSuspended(); });
    if (static_cast<std::size_t>(unverified) >= limits_.unverified) {
        refuse(fmt::format("{} wait to be verified", unverified));
        return;
    }
    // This comes before anything that takes longer: thousands of clients may be waiting.
    if (const auto user = userOfPeer(socket.get());
        user && debts_.isOverdrawn(*user, Debts::Clock::now())) {
        refuse(fmt::format("too many of user {} were turned away", *user));
        return;
    }
    const auto begin = Debts::Clock::now();
    auto peer = identify(socket);
    if (!peer) {
        refuse(peer.error().localizedDescription());
        return;
    }
    const ProcessIdentity& process = *peer->process;
    const auto ofUser = std::ranges::count_if(connections_, [&](const auto& connection) {
        return connection->peer()->user() == process.user();
    });
    if (static_cast<std::size_t>(ofUser) >= limits_.connectionsPerUser) {
        refuse(
            fmt::format("pid {}: {} of user {} are open", process.pid(), ofUser, process.user()));
        return;
    }
    const auto connection =
        Connection::create(queue_, std::move(socket), std::move(peer->process), limits_);
    connections_.push_back(connection);
    connection->setClosedHandler([this, closed = connection.get()] {
        std::erase_if(connections_, [&](const auto& open) { return open.get() == closed; });
    });
    present(connection);
    if (connection->isClosed() && !connection->wasResumed()) {
        charge(connection->peer()->user(), Debts::Clock::now() - begin);
    }
}

// A stranger decides how long it takes to see that he is one, and thousands may wait in the
// socket's queue before a client whom they must not keep waiting.
void Listener::charge(uid_t user, std::chrono::nanoseconds time) {
    if (user != 0) {
        debts_.add(user, time, Debts::Clock::now());
    }
}

tl::expected<Peer, Error> Listener::identify(const Descriptor& socket) {
    // A connection inherits the options only if it comes after the listening socket has them, and
    // the client that starts the service has connected before.
    if (const Error error = setMessageOptions(socket.get())) {
        return tl::unexpected(error);
    }
    auto peer = peerOf(socket.get());
    if (peer && peer->isFoundByPID && !std::exchange(weakIdentityLogged_, true)) {
        log::write(log::Priority::notice,
                   "This kernel does not say which process connected: peers are identified by "
                   "process ID and start time");
    }
    return peer;
}

void Listener::present(const std::shared_ptr<Connection>& connection) {
    try {
        if (handler_) {
            handler_(connection);
        }
    } catch (const std::exception& exception) {
        log::write(log::Priority::error,
                   fmt::format("Connection from pid {} closed: judging it ended with an "
                               "exception: {}",
                               connection->processID(), log::foreign(exception.what())));
        connection->cancel();
        return;
    }
    constexpr long kOwnersHere = 2; // the list's and the caller's
    if (connection->isSuspended() && connection.use_count() <= kOwnersHere) {
        connection->cancel();
    }
}

void Listener::pause(std::string_view reason) {
    refusals_.log(fmt::format("No connections are accepted for a moment: {}", reason));
    if (!pauseTimer_) {
        pauseTimer_ = queue_.addTimer([this] {
            if (!spare_) {
                spare_ = freshSpare();
            }
            resume();
        });
    }
    pauseTimer_.setDeadline(queue_.now() + kPause);
    // A change of what is watched does not fail; the worst would be a busy moment.
    static_cast<void>(source_.setEvents(0));
}

} // namespace qv::xpc
