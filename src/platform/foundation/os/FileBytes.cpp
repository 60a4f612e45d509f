#include "platform/foundation/os/FileBytes.h"

#include <cerrno>
#include <limits>
#include <system_error>
#include <unistd.h>

namespace qv {

int readExactly(int fd, std::uint64_t offset, std::span<char> into) noexcept {
    while (!into.empty()) {
        if (offset > static_cast<std::uint64_t>(std::numeric_limits<off_t>::max())) {
            return EOVERFLOW;
        }
        const ssize_t got = ::pread(fd, into.data(), into.size(), static_cast<off_t>(offset));
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got <= 0) {
            return got < 0 ? errno : ENODATA;
        }
        offset += static_cast<std::uint64_t>(got);
        into = into.subspan(static_cast<std::size_t>(got));
    }
    return 0;
}

int writeAll(int fd, std::string_view bytes) noexcept {
    while (!bytes.empty()) {
        const ssize_t written = ::write(fd, bytes.data(), bytes.size());
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written <= 0) {
            return written < 0 ? errno : EIO;
        }
        bytes.remove_prefix(static_cast<std::size_t>(written));
    }
    return 0;
}

std::string errnoText(int errorNumber) { return std::system_category().message(errorNumber); }

} // namespace qv
