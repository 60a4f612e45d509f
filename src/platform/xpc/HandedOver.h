#pragma once

#include "platform/foundation/os/Descriptor.h"
#include "platform/foundation/values/Error.h"

#include <tl/expected.hpp>

#include <string>
#include <utility>
#include <vector>

namespace qv::xpc {

/// The descriptors that the service manager handed over to this process, with their names, as
/// sd_listen_fds(3) describes it; closed when something is executed. An error (noListener) where
/// the environment says nothing of them, or what makes no sense. It says so once: children get
/// none, and neither does a second call. Not while other threads use the environment.
[[nodiscard]] tl::expected<std::vector<std::pair<std::string, Descriptor>>, Error> takeHandedOver();

/// A stream socket of the local domain that listens.
[[nodiscard]] bool isListening(int descriptor) noexcept;

} // namespace qv::xpc
