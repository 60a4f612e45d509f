#pragma once

#include <cstdint>
#include <string_view>

namespace qv::xpc {

/// Errors of a client's connection; NSUnderlyingError holds the cause where there is one.
inline constexpr std::string_view kClientErrorDomain = "QVCatalogClientErrorDomain";

enum class ClientErrorCode : std::uint8_t {
    unreachable = 1, ///< nobody listens at the socket, or it may not be used
    rejected = 2,    ///< closed before the greeting: the service does not accept this process
    interrupted = 3, ///< closed before the reply; whether the request was executed is not known
    protocol =
        4, ///< the bytes that came are not a message of this service, or the request is not one
    timedOut = 5,    ///< the caller's deadline passed; the connection is of no more use
    unfit = 6,       ///< this process is in no state to be a client, or has given up its group
    notExecuted = 7, ///< closed at each attempt; the request was certainly not executed
    cancelled = 8,   ///< the caller's cancel descriptor; the connection is of no more use
};

} // namespace qv::xpc
