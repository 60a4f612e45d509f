#include "platform/foundation/files/item/SocketPlace.h"

#include "platform/foundation/files/item/ItemPlace.h"

#include <cstddef>
#include <cstring>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

namespace qv {

std::string socketPath(int socket) {
    sockaddr_un address{};
    socklen_t size = sizeof address;
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-reinterpret-cast): how sockets give addresses
    if (::getsockname(socket, reinterpret_cast<sockaddr*>(&address), &size) != 0 ||
        size <= offsetof(sockaddr_un, sun_path) || address.sun_path[0] != '/') {
        return {};
    }
    const char* begin = static_cast<const char*>(address.sun_path);
    return {begin, ::strnlen(begin, size - offsetof(sockaddr_un, sun_path))};
}

bool isSocketBelow(const std::string& path, const std::string& folder) {
    const Descriptor outer(::open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    const auto place = path.starts_with('/') ? placeOf(path) : tl::unexpected(EINVAL);
    struct stat info{};
    return outer && place &&
           ::fstatat(place->parent.get(), place->name.c_str(), &info, AT_SYMLINK_NOFOLLOW) == 0 &&
           S_ISSOCK(info.st_mode) && isInside(place->parent.get(), outer.get());
}

} // namespace qv
