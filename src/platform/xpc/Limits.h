#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>

namespace qv::xpc {

/// The resources that a peer may take. The defaults are the service's; tests take smaller ones.
struct Limits {
    std::size_t connections = 64;
    std::size_t connectionsPerUser = 8;
    /// Neither resumed nor cancelled yet; fewer users than it takes to fill this up are not a
    /// danger to others.
    std::size_t unverified = 48;
    std::uint32_t body = 64U << 20;      ///< bytes of a request's body
    std::size_t replyQueue = 16UL << 20; ///< bytes that wait to be sent on one connection
    unsigned refusalsLogged = 10;        ///< in a second
    /// The time that clients of one user that are turned away may take: the part that a second pays
    /// off, and the most that may be owed. While more is, that user's are refused unseen. Root is
    /// not limited.
    std::chrono::milliseconds strangers{100};

    // The times are counted in MainQueue::now().
    std::chrono::milliseconds verification{2'000};   ///< from accept to resume
    std::chrono::milliseconds frame{10'000};         ///< from a frame's first byte to its last
    std::chrono::milliseconds replyProgress{10'000}; ///< between two bytes that the peer takes
};

} // namespace qv::xpc
