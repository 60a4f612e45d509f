#include "platform/foundation/os/Descriptor.h"

#include <cerrno>
#include <unistd.h>

namespace qv {

Descriptor::~Descriptor() {
    if (fd_ >= 0) {
        const int kept = errno;
        ::close(fd_); // on Linux the descriptor is gone whatever close answers
        errno = kept;
    }
}

} // namespace qv
