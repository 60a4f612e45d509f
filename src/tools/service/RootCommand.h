#pragma once

#include "tools/terminal/Result.h"

#include <optional>

namespace qv::tools {

/// Makes this process a client that the service accepts, if it is root's and of an installed
/// system: executes the copy that `setup` has made, with the words of this command line, and does
/// not return then. Returns nothing if this process is an installed client already, and in a
/// developer's build; the failure if the copy is missing. Call it before anything is read from
/// standard input.
[[nodiscard]] std::optional<Failure> becomeAcceptedClient();

} // namespace qv::tools
