#pragma once

#include "platform/foundation/os/Descriptor.h"

#include <string>
#include <utility>
#include <vector>

namespace qv::xpc {

/// The descriptors that the service manager handed over to this process, with their names, as
/// sd_listen_fds(3) describes it; closed when something is executed. None where what the
/// environment says of them makes no sense. The environment says it once: children get none, and a
/// second call gives none. Not while other threads use the environment.
[[nodiscard]] std::vector<std::pair<std::string, Descriptor>> takeHandedOver();

/// A stream socket of the local domain that listens.
[[nodiscard]] bool isListening(int descriptor) noexcept;

} // namespace qv::xpc
