#pragma once

#include <sys/types.h>

namespace qv {

/// The process that asked for something to be done on its behalf, and its user, as the kernel
/// vouches for them; the process is alive, or its number is not given away yet.
struct Requester {
    pid_t process = 0;
    uid_t user = 0;
};

} // namespace qv
