#pragma once

#include "platform/foundation/values/Error.h"

#include <cstdint>
#include <string_view>

namespace qv::xpc {

/// The domain of what goes wrong on a connection besides plain system errors.
inline constexpr std::string_view kWireErrorDomain = "QVXPCErrorDomain";

enum class WireErrorCode : std::uint8_t {
    badFrame = 1,       ///< a header that breaks the rules; the text names the byte
    badBody = 2,        ///< a body that is not a binary property list dictionary
    wrongNonce = 3,     ///< a request that does not repeat its connection's nonce
    foreignSender = 4,  ///< bytes from another process than the peer
    descriptors = 5,    ///< descriptors in the control data
    late = 6,           ///< a deadline passed
    tooLong = 7,        ///< more than a limit allows
    peerGone = 8,       ///< the peer has ended or closed its side
    cancelled = 9,      ///< closed on our own side
    handlerFailed = 10, ///< the event handler ended with an exception
    noIdentity = 11,    ///< the peer's identity could not be found out beyond doubt
    noListener = 12,    ///< the service manager handed over no usable socket
};

inline Error wireError(WireErrorCode code, std::string_view text) {
    return Error::withDescription(kWireErrorDomain, static_cast<std::int64_t>(code), text);
}

} // namespace qv::xpc
