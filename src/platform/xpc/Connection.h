#pragma once

#include "platform/foundation/os/Descriptor.h"
#include "platform/foundation/os/ProcessIdentity.h"
#include "platform/xpc/Limits.h"
#include "platform/xpc/MainQueue.h"
#include "platform/xpc/Message.h"
#include "platform/xpc/wire/FrameReader.h"
#include "platform/xpc/wire/FrameWriter.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace qv::xpc {

/// The service's end of one client's connection. It comes from a Listener suspended: nothing is
/// read until resume(), and a connection that is cancelled before is closed without a byte read. A
/// request that has arrived whole waits for its user's turn (see Turns) and is delivered then, if
/// its peer is still there; meanwhile nothing further is read. Events come on the main queue; after
/// a ConnectionError no more come.
class Connection : public std::enable_shared_from_this<Connection> {
public:
    using EventHandler = std::function<void(const Event&)>;

    /// Takes an accepted, non-blocking stream socket with SO_PASSCRED.
    [[nodiscard]] static std::shared_ptr<Connection>
    create(MainQueue& queue, Descriptor socket, ProcessIdentity::Shared peer, const Limits& limits);
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;
    Connection(Connection&&) = delete;
    Connection& operator=(Connection&&) = delete;
    ~Connection();

    /// Stays valid after the connection has ended.
    [[nodiscard]] const ProcessIdentity::Shared& peer() const noexcept { return peer_; }
    [[nodiscard]] pid_t processID() const noexcept { return peer_->pid(); }

    void setEventHandler(EventHandler handler);
    /// The guard is asked when a request's turn has come; the connection is closed if it refuses.
    void setGuard(std::function<bool()> guard) { guard_ = std::move(guard); }
    /// Runs once, when the connection is closed for whatever reason, before its last event.
    void setClosedHandler(MainQueue::Work handler);

    /// Greets the peer and begins to read.
    void resume();
    /// Closes at once. A connection that was resumed still gets its `invalidated` event.
    void cancel();
    /// The same for a service that leaves. Unless a request was begun and not answered, the peer,
    /// even one that is not resumed yet, is told without waiting that none without a reply was or
    /// will be executed.
    void bidFarewell() noexcept;

    /// Returns none when the message asked for no reply, came over another connection, or has one
    /// already.
    [[nodiscard]] std::optional<Reply> createReply(const Message& message);
    /// Sends, once; bytes that cannot be sent at once are queued. A reply for a closed connection
    /// is dropped; one that cannot be written or is too long closes the connection.
    void send(const Reply& reply, const Value& dictionary);

    [[nodiscard]] bool isSuspended() const noexcept { return state_ == State::suspended; }
    [[nodiscard]] bool isClosed() const noexcept { return state_ == State::closed; }
    /// Whether somebody has resumed it, whatever came then.
    [[nodiscard]] bool wasResumed() const noexcept { return wasResumed_; }

private:
    friend struct ReplyRoute;
    enum class State : std::uint8_t { suspended, active, closed };

    Connection(MainQueue& queue, Descriptor socket, ProcessIdentity::Shared peer,
               const Limits& limits);

    // Every entry from the loop goes through here: a failure ends this connection only.
    template <typename Work> void perform(const Work& work) noexcept;
    void abandon(const char* reason) noexcept;
    void onReady(std::uint32_t events);
    void onDeadline();
    void greet();
    void readAvailable();
    std::size_t readPiece();
    void await(Frame frame);
    void begin(const Frame& frame);
    void deliver(const Event& event);
    void enqueue(Frame frame);
    void flush();
    void requestEnded() noexcept;

    [[nodiscard]] bool isReading() const noexcept {
        return state_ == State::active && !waiting_ && !requestAtHand_ && writer_.empty();
    }
    [[nodiscard]] std::optional<MainQueue::Clock::time_point> deadline() const noexcept;
    void updateInterest();
    void close(ConnectionError::Kind kind, const Error& cause);
    void closeFor(const Error& cause) { close(ConnectionError::Kind::interrupted, cause); }

    MainQueue& queue_;
    Limits limits_;
    ProcessIdentity::Shared peer_;
    Descriptor socket_;
    EventSource io_; // destroyed before socket_
    EventSource timer_;
    State state_ = State::suspended;
    std::shared_ptr<EventHandler> handler_;
    std::function<bool()> guard_;
    MainQueue::Work closedHandler_;
    FrameReader reader_;
    FrameWriter writer_;
    std::string nonce_;
    bool wasResumed_ = false;
    std::optional<Frame> waiting_; // for its turn
    bool requestAtHand_ = false;
    bool answered_ = true; // the last request that was begun, if any
    std::uint32_t watched_ = 0;
    std::optional<MainQueue::Clock::time_point> armed_;
    MainQueue::Clock::time_point begin_;        // of its existence
    MainQueue::Clock::time_point frameBegin_;   // of the unfinished frame
    MainQueue::Clock::time_point lastProgress_; // of sending
};

} // namespace qv::xpc
