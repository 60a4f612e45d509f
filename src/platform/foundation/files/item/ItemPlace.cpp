#include "platform/foundation/files/item/ItemPlace.h"

#include "platform/foundation/files/item/HeldItem.h"
#include "platform/foundation/os/Folder.h"

#include <fmt/core.h>

#include <cerrno>
#include <climits>
#include <fcntl.h>

namespace qv {

namespace {} // namespace

tl::expected<ItemPlace, int> placeOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    ItemPlace place;
    place.name = path.substr(slash + 1);
    if (place.name.empty()) {
        return tl::unexpected(EBUSY);
    }
    if (place.name == "." || place.name == "..") {
        return tl::unexpected(EINVAL);
    }
    if (place.name.size() > NAME_MAX) {
        return tl::unexpected(ENAMETOOLONG);
    }
    // A path that ends with a slash has to name a folder.
    tl::expected<Descriptor, int> parent = holdItem(path.substr(0, slash + 1), LastLink::follow);
    if (!parent) {
        return tl::unexpected(parent.error());
    }
    place.parent = *std::move(parent);
    place.path = path;
    return place;
}

std::string resolvedPath(const ItemPlace& item) {
    const std::string folder = pathOfHeldItem(item.parent.get());
    return folder.empty() ? item.path
                          : fmt::format("{}/{}", folder == "/" ? "" : folder, item.name);
}

tl::expected<Descriptor, int> holdItem(const ItemPlace& item, LastLink last) {
    return holdItem(item.parent.get(), item.name.c_str(), last);
}

tl::expected<ItemPlace, int> placeBeside(const ItemPlace& item, const std::string& name) {
    if (name.size() > NAME_MAX) {
        return tl::unexpected(ENAMETOOLONG);
    }
    Descriptor parent(::openat(item.parent.get(), ".", O_PATH | O_CLOEXEC | O_DIRECTORY));
    if (!parent) {
        return tl::unexpected(errno);
    }
    return ItemPlace{std::move(parent), name, item.path.substr(0, item.path.rfind('/') + 1) + name};
}

bool isInside(int folder, int outer) {
    const std::optional<Identity> wanted = identityOf(outer);
    Descriptor here(::openat(folder, ".", O_PATH | O_CLOEXEC | O_DIRECTORY));
    std::optional<Identity> last;
    while (here) {
        const std::optional<Identity> seen = identityOf(here.get());
        if (!seen || seen == last) {
            return false;
        }
        if (seen == wanted) {
            return true;
        }
        last = seen;
        here = Descriptor(::openat(here.get(), "..", O_PATH | O_CLOEXEC | O_DIRECTORY));
    }
    return false;
}

} // namespace qv
