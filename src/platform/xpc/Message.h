#pragma once

#include "platform/foundation/values/Error.h"
#include "platform/foundation/values/Value.h"

#include <cstdint>
#include <memory>
#include <utility>
#include <variant>

namespace qv::xpc {

class Connection;
struct ReplyRoute; // like the functions of these classes, in Connection.cpp

/// A request. As long as a copy of it, or its reply, exists unanswered, its connection reads no
/// further one.
class Message {
public:
    [[nodiscard]] const Value& dictionary() const noexcept { return dictionary_; }
    /// The connection that a reply would go to; null when the sender asked for none.
    [[nodiscard]] std::shared_ptr<Connection> remoteConnection() const noexcept;

private:
    friend class Connection;
    Message(Value dictionary, std::shared_ptr<ReplyRoute> route) noexcept
        : dictionary_(std::move(dictionary)), route_(std::move(route)) {}
    Value dictionary_;
    std::shared_ptr<ReplyRoute> route_;
};

/// The right to answer one message, once.
class Reply {
    friend class Connection;
    explicit Reply(std::shared_ptr<ReplyRoute> route) noexcept : route_(std::move(route)) {}
    std::shared_ptr<ReplyRoute> route_;
};

/// The last event of a connection.
struct ConnectionError {
    enum class Kind : std::uint8_t {
        invalidated, ///< the peer has closed or ended, or this side has cancelled
        interrupted, ///< closed because of a fault: broken rules, a deadline, a system error
    };
    Kind kind = Kind::invalidated;
    Error cause;
};

using Event = std::variant<Message, ConnectionError>;

} // namespace qv::xpc
