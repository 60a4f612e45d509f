#include "platform/foundation/files/item/MakeFolders.h"

#include "platform/foundation/files/item/HeldItem.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

namespace qv {

tl::expected<Descriptor, int> openOrMakeFolders(const std::string& path) {
    constexpr mode_t kOpenToAll = 0777;
    // A path that is there is found as any other; the rest goes component by component.
    tl::expected<Descriptor, int> folder = holdItem(path, LastLink::follow);
    if (!folder && folder.error() == ENOENT) {
        folder = holdItem("/", LastLink::follow);
        for (std::string_view rest(path); folder && !rest.empty();) {
            const std::size_t slash = std::min(rest.find('/'), rest.size());
            const std::string component(rest.substr(0, slash));
            rest.remove_prefix(std::min(slash + 1, rest.size()));
            if (component.empty()) {
                continue;
            }
            if (::mkdirat(folder->get(), component.c_str(), kOpenToAll) != 0 && errno != EEXIST) {
                return tl::unexpected(errno);
            }
            folder = holdItem(folder->get(), component.c_str(), LastLink::follow);
        }
    }
    if (!folder) {
        return folder;
    }
    Descriptor readable(::openat(folder->get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!readable && errno != EACCES) {
        return tl::unexpected(errno);
    }
    return readable ? std::move(readable) : std::move(*folder);
}

} // namespace qv
