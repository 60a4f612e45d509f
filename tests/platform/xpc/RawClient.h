#pragma once

#include "platform/foundation/os/Descriptor.h"
#include "platform/xpc/wire/Frame.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace qv::xpc::test {

/// The bytes of a frame.
std::string frameBytes(FrameKind kind, std::string_view body, std::uint64_t sequence = 1,
                       bool replyExpected = true);

/// A client that does as it likes, with plain system calls. Waits at most a minute for anything.
class RawClient {
public:
    explicit RawClient(const std::string& path);
    /// A client that has read its greeting.
    static RawClient greeted(const std::string& path);

    [[nodiscard]] int fd() const { return socket_.get(); }
    void close() { socket_.reset(); }

    /// Returns false when the service has closed.
    [[nodiscard]] bool send(std::string_view bytes) const;
    /// Returns `count` bytes, or those that came before the end.
    [[nodiscard]] std::string receive(std::size_t count) const;
    /// Throws when none comes.
    [[nodiscard]] Frame readFrame() const;

    /// Waits until the service has ended the connection, and tells how; reads away what it sent
    /// before.
    enum class End : std::uint8_t { none, orderly, reset };
    [[nodiscard]] End end() const;
    [[nodiscard]] bool isClosed() const { return end() != End::none; }

    /// Reads the greeting; gives its nonce. Throws when none comes.
    std::string greet();
    /// A request's bytes with this connection's nonce, once greeted.
    [[nodiscard]] std::string request(std::string_view text, std::uint64_t sequence = 1,
                                      bool replyExpected = true) const;
    /// Sends such a request and tells whether the echo came back.
    [[nodiscard]] bool isServed(std::uint64_t sequence = 1) const;

private:
    Descriptor socket_;
    std::string nonce_;
};

} // namespace qv::xpc::test
