#include "platform/xpc/Connection.h"

#include "platform/foundation/log/Log.h"
#include "platform/xpc/Turns.h"
#include "platform/xpc/wire/SocketIO.h"
#include "platform/xpc/wire/WireError.h"

#include <fmt/core.h>

#include <cerrno>
#include <sys/epoll.h>
#include <sys/random.h>
#include <utility>

namespace qv::xpc {

namespace {

constexpr std::size_t kNonceSize = 32;
constexpr std::size_t kBytesPerTurn = 256UL * 1024; // then other connections have their turn

tl::expected<std::string, Error> freshNonce() {
    std::string nonce(kNonceSize, '\0');
    // The kernel gives up to 256 bytes whole or not at all.
    if (::getrandom(nonce.data(), nonce.size(), 0) != static_cast<ssize_t>(nonce.size())) {
        return tl::unexpected(Error::posix(errno));
    }
    return nonce;
}

bool isPeerGone(const Error& error) {
    return error.domain() == error_domain::kPOSIX &&
           (error.code() == EPIPE || error.code() == ECONNRESET);
}

} // namespace

/// The connection and number to which the answer to one message goes. Its end without an answer
/// lets the connection read on.
struct ReplyRoute {
    ReplyRoute(std::weak_ptr<Connection> to, std::uint64_t number) noexcept
        : connection(std::move(to)), sequence(number) {}
    ReplyRoute(const ReplyRoute&) = delete;
    ReplyRoute& operator=(const ReplyRoute&) = delete;
    ReplyRoute(ReplyRoute&&) = delete;
    ReplyRoute& operator=(ReplyRoute&&) = delete;
    ~ReplyRoute() {
        if (const auto target = answered ? nullptr : connection.lock()) {
            target->requestEnded();
        }
    }
    std::weak_ptr<Connection> connection;
    std::uint64_t sequence;
    bool replyMade = false;
    bool answered = false;
};

std::shared_ptr<Connection> Message::remoteConnection() const noexcept {
    return route_ == nullptr ? nullptr : route_->connection.lock();
}

Connection::Connection(MainQueue& queue, Descriptor socket, ProcessIdentity::Shared peer,
                       const Limits& limits)
    : queue_(queue), limits_(limits), peer_(std::move(peer)), socket_(std::move(socket)),
      reader_(FrameReader::Receiver::service, limits.body), writer_(limits.replyQueue),
      begin_(queue.now()) {}

Connection::~Connection() = default;

std::shared_ptr<Connection> Connection::create(MainQueue& queue, Descriptor socket,
                                               ProcessIdentity::Shared peer, const Limits& limits) {
    std::shared_ptr<Connection> connection(
        new Connection(queue, std::move(socket), std::move(peer), limits));
    connection->perform([] {}); // arms the deadline for a decision
    return connection;
}

void Connection::setEventHandler(EventHandler handler) {
    handler_ = std::make_shared<EventHandler>(std::move(handler));
}

void Connection::setClosedHandler(MainQueue::Work handler) { closedHandler_ = std::move(handler); }

void Connection::resume() {
    if (state_ != State::suspended) {
        return;
    }
    perform([this] {
        state_ = State::active;
        wasResumed_ = true;
        auto io = queue_.watch(socket_.get(), 0, [this](std::uint32_t events) {
            perform([this, events] { onReady(events); });
        });
        if (!io) {
            closeFor(io.error());
            return;
        }
        io_ = std::move(*io);
        greet();
    });
}

void Connection::cancel() {
    close(ConnectionError::Kind::invalidated,
          wireError(WireErrorCode::cancelled, "the connection was cancelled"));
}

void Connection::bidFarewell() noexcept {
    perform([this] {
        if (state_ != State::closed && answered_) {
            enqueue({FrameKind::farewell, false, 0, {}});
        }
        cancel();
    });
}

std::optional<Reply> Connection::createReply(const Message& message) {
    if (message.remoteConnection().get() != this ||
        std::exchange(message.route_->replyMade, true)) {
        return std::nullopt;
    }
    return Reply(message.route_);
}

void Connection::send(const Reply& reply, const Value& dictionary) {
    if (std::exchange(reply.route_->answered, true) || state_ == State::closed) {
        return;
    }
    perform([&] {
        auto body = bodyOfDictionary(dictionary);
        if (!body) {
            closeFor(body.error());
            return;
        }
        requestAtHand_ = false;
        answered_ = true;
        enqueue({FrameKind::reply, false, reply.route_->sequence, std::move(*body)});
    });
}

template <typename Work> void Connection::perform(const Work& work) noexcept {
    const auto self = shared_from_this(); // a handler may drop every other owner
    try {
        work();
        updateInterest();
    } catch (const std::exception& exception) {
        abandon(exception.what());
    } catch (...) {
        abandon("an exception of a foreign kind");
    }
}

// Closes after an exception, whatever state it left behind.
void Connection::abandon(const char* reason) noexcept {
    try {
        log::write(log::Priority::error,
                   fmt::format("Connection from pid {} closed after an exception: {}", processID(),
                               log::foreign(reason)));
        closeFor(wireError(WireErrorCode::handlerFailed, reason));
    } catch (...) { // no memory left even for that
        state_ = State::closed;
        waiting_.reset();
        io_.reset();
        timer_.reset();
        socket_.reset();
    }
}

void Connection::greet() {
    auto nonce = freshNonce();
    if (!nonce) {
        closeFor(nonce.error());
        return;
    }
    nonce_ = std::move(*nonce);
    auto body = bodyOfDictionary(Value::dictionary({{"nonce", Value::data(nonce_)}}));
    if (!body) {
        closeFor(body.error());
        return;
    }
    enqueue({FrameKind::greeting, false, 0, std::move(*body)});
}

void Connection::onReady(std::uint32_t events) {
    constexpr std::uint32_t kEnd = EPOLLHUP | EPOLLERR;
    if ((events & EPOLLOUT) != 0) {
        flush();
    }
    if (isReading() && (events & (EPOLLIN | kEnd)) != 0) {
        readAvailable();
    }
    if (!isReading() && (events & kEnd) != 0) {
        close(ConnectionError::Kind::invalidated,
              wireError(WireErrorCode::peerGone, "the peer closed while a request was at hand"));
    }
}

void Connection::onDeadline() {
    armed_.reset();
    // Bytes that have arrived in the meantime count, however late this handler runs.
    flush();
    if (isReading()) {
        readAvailable();
    }
    if (const auto due = deadline(); due && *due <= queue_.now()) {
        closeFor(wireError(WireErrorCode::late, "the peer let a deadline pass"));
    }
}

void Connection::readAvailable() {
    for (std::size_t budget = kBytesPerTurn; isReading();) {
        const std::size_t count = readPiece();
        if (count == 0 || count >= budget) {
            return;
        }
        budget -= count;
    }
}

// Returns the number of bytes that came; 0 when there is nothing more to do in this turn.
std::size_t Connection::readPiece() {
    const auto piece = receive(socket_.get(), reader_.space());
    if (!piece) {
        const bool gone = isPeerGone(piece.error());
        close(gone ? ConnectionError::Kind::invalidated : ConnectionError::Kind::interrupted,
              piece.error());
        return 0;
    }
    if (piece->outcome == Received::Outcome::wouldBlock) {
        return 0;
    }
    if (piece->outcome == Received::Outcome::ended) {
        const bool cut = reader_.midFrame();
        close(cut ? ConnectionError::Kind::interrupted : ConnectionError::Kind::invalidated,
              wireError(WireErrorCode::peerGone,
                        cut ? "the peer closed amid a frame" : "the peer has closed"));
        return 0;
    }
    if (piece->sender != processID()) {
        closeFor(wireError(WireErrorCode::foreignSender,
                           fmt::format("process {} wrote on the connection of process {}",
                                       piece->sender.value_or(0), processID())));
        return 0;
    }
    if (!reader_.midFrame()) {
        frameBegin_ = queue_.now();
    }
    auto frame = reader_.advance(piece->count);
    if (!frame) {
        closeFor(frame.error());
        return 0;
    }
    if (*frame) {
        await(std::move(**frame));
        return 0;
    }
    return piece->count;
}

void Connection::await(Frame frame) {
    waiting_ = std::move(frame);
    const Error error = queue_.turns().enter(peer_->user(), this, [weak = weak_from_this()] {
        if (const auto self = weak.lock(); self && self->waiting_) {
            self->perform([&] { self->begin(*std::exchange(self->waiting_, std::nullopt)); });
        }
    });
    if (error) {
        closeFor(error);
    }
}

void Connection::begin(const Frame& frame) {
    // A peer that is still there has had its process ID all along: no other process can have sent
    // under that number.
    if (peer_->hasEnded()) {
        close(ConnectionError::Kind::invalidated,
              wireError(WireErrorCode::peerGone, "the peer has ended"));
        return;
    }
    if (guard_ && !guard_()) {
        closeFor(wireError(WireErrorCode::foreignSender,
                           "the peer is not the program any more that was accepted"));
        return;
    }
    auto dictionary = dictionaryOfBody(frame.body);
    if (!dictionary) {
        closeFor(dictionary.error());
        return;
    }
    const Value* nonce = dictionary->find("nonce");
    if (nonce == nullptr || !nonce->is(Value::Kind::data) || nonce->asData() != nonce_) {
        closeFor(wireError(WireErrorCode::wrongNonce,
                           "a request does not repeat this connection's nonce"));
        return;
    }
    requestAtHand_ = true;
    answered_ = false;
    deliver(Message(std::move(*dictionary),
                    frame.replyExpected
                        ? std::make_shared<ReplyRoute>(weak_from_this(), frame.sequence)
                        : nullptr));
    if (!frame.replyExpected) {
        requestAtHand_ = false;
    }
}

void Connection::deliver(const Event& event) {
    if (const auto handler = handler_) { // kept: it may be replaced or dropped while it runs
        (*handler)(event);
    }
}

void Connection::enqueue(Frame frame) {
    if (writer_.empty()) {
        lastProgress_ = queue_.now();
    }
    if (const Error error = writer_.append(std::move(frame))) {
        closeFor(error);
        return;
    }
    flush();
}

void Connection::flush() {
    while (!writer_.empty()) {
        const auto count = xpc::send(socket_.get(), writer_.pending());
        if (!count) {
            const bool gone = isPeerGone(count.error());
            close(gone ? ConnectionError::Kind::invalidated : ConnectionError::Kind::interrupted,
                  count.error());
            return;
        }
        if (*count == 0) {
            return;
        }
        writer_.advance(*count);
        lastProgress_ = queue_.now();
    }
}

void Connection::requestEnded() noexcept {
    perform([this] { requestAtHand_ = false; });
}

std::optional<MainQueue::Clock::time_point> Connection::deadline() const noexcept {
    if (state_ == State::closed) {
        return std::nullopt;
    }
    if (state_ == State::suspended) {
        return begin_ + limits_.verification;
    }
    if (!writer_.empty()) {
        return lastProgress_ + limits_.replyProgress;
    }
    return reader_.midFrame() ? std::optional(frameBegin_ + limits_.frame) : std::nullopt;
}

// Tells the loop what this state waits for, where that has changed.
void Connection::updateInterest() {
    if (state_ == State::closed) {
        return;
    }
    const std::uint32_t events = (isReading() ? std::uint32_t{EPOLLIN} : 0U) |
                                 (writer_.empty() ? 0U : std::uint32_t{EPOLLOUT});
    if (io_ && events != watched_) {
        if (const Error error = io_.setEvents(events)) {
            closeFor(error);
            return;
        }
        watched_ = events;
    }
    const auto due = deadline();
    if (due == armed_) {
        return;
    }
    armed_ = due;
    if (!due) {
        timer_.disable();
        return;
    }
    if (!timer_) {
        timer_ = queue_.addTimer([this] { perform([this] { onDeadline(); }); });
    }
    timer_.setDeadline(*due);
}

void Connection::close(ConnectionError::Kind kind, const Error& cause) {
    if (state_ == State::closed) {
        return;
    }
    const bool wasActive = std::exchange(state_, State::closed) == State::active;
    if (std::exchange(waiting_, std::nullopt)) {
        queue_.turns().leave(peer_->user(), this);
    }
    io_.reset();
    timer_.reset();
    socket_.reset();
    reader_.reset();
    writer_.reset();
    const auto self = shared_from_this();
    if (const auto closed = std::exchange(closedHandler_, nullptr)) {
        closed();
    }
    if (wasActive) {
        // The event comes later: this may run inside the handler.
        queue_.async([self, event = ConnectionError{kind, cause}] {
            self->deliver(event);
            self->handler_.reset();
        });
    } else {
        handler_.reset();
    }
}

} // namespace qv::xpc
