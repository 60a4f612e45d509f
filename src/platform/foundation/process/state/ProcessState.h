#pragma once

#include "platform/foundation/values/Error.h"

namespace qv {

/// Puts right what a privileged program inherits from whoever started it: file-mode mask 022,
/// working directory "/", every signal unblocked and at its default but SIGPIPE and SIGXFSZ, which
/// are ignored, and /dev/null where descriptor 0, 1 or 2 is closed. Other descriptors stay: a
/// service is handed its sockets. Call it first of all, before other threads exist. Ends the
/// process where that cannot be done.
void sanitizeProcess();

// Its parts, for programs that want less.

/// Opens /dev/null as descriptor 0, 1 and 2 where they are closed.
[[nodiscard]] Error openStandardDescriptors();
/// Unblocks every signal for the calling thread.
[[nodiscard]] Error unblockSignals();
/// Makes the file-mode mask 022.
void resetFileModeMask();

} // namespace qv
