#include "platform/foundation/os/CopiedPath.h"

#include "platform/foundation/os/Descriptor.h"

#include <fmt/core.h>

#include <array>
#include <cerrno>
#include <climits>
#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace qv {

std::optional<std::string> copiedPath(const std::string& root, std::string path, CopiedLink last) {
    if (root.empty()) {
        return path;
    }
    path.erase(0, root.size());
    while (path.ends_with('/')) {
        path.pop_back();
    }
    if (path.find('\0') != std::string::npos) {
        errno = ENOENT;
        return std::nullopt;
    }
    const Descriptor folder(::open(root.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    open_how how{};
    how.flags = O_PATH | O_CLOEXEC | (last == CopiedLink::keep ? O_NOFOLLOW : 0U);
    how.resolve = RESOLVE_IN_ROOT | RESOLVE_NO_MAGICLINKS;
    const std::string below = path.empty() ? "/" : path;
    const Descriptor item(
        static_cast<int>(::syscall(SYS_openat2, folder.get(), below.c_str(), &how, sizeof how)));
    std::array<char, PATH_MAX> place; // NOLINT(*-member-init): it is filled by the kernel
    const ssize_t length = item ? ::readlink(fmt::format("/proc/self/fd/{}", item.get()).c_str(),
                                             place.data(), place.size())
                                : -1;
    return length < 0 ? std::nullopt
                      : std::optional(std::string(place.data(), static_cast<std::size_t>(length)));
}

} // namespace qv
