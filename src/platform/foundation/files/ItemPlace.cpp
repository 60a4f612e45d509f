#include "platform/foundation/files/ItemPlace.h"

#include "platform/foundation/files/walk/HeldFolder.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <fcntl.h>
#include <linux/openat2.h>
#include <string_view>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace qv {

namespace {

constexpr int kLookup = O_PATH | O_CLOEXEC;

UniqueFd openWithoutLinks(const char* path) {
    open_how how{};
    how.flags = kLookup | O_DIRECTORY;
    how.resolve = RESOLVE_NO_SYMLINKS | RESOLVE_NO_MAGICLINKS;
    return UniqueFd(static_cast<int>(::syscall(SYS_openat2, AT_FDCWD, path, &how, sizeof how)));
}

/// Follows a path to a folder by itself, since the kernel does not ask whose links it follows.
class Resolver {
public:
    // None, and errno, when there is no way.
    UniqueFd resolve(std::string_view path) {
        return follow(UniqueFd(::open("/", kLookup | O_DIRECTORY)), path);
    }

private:
    UniqueFd follow(UniqueFd folder, std::string_view path) {
        while (folder && !path.empty()) {
            const std::size_t end = std::min(path.find('/'), path.size());
            const std::string name(path.substr(0, end));
            path.remove_prefix(std::min(end + 1, path.size()));
            if (!name.empty()) {
                folder = step(std::move(folder), name);
            }
        }
        return folder;
    }

    UniqueFd step(UniqueFd folder, const std::string& name) {
        UniqueFd item(::openat(folder.get(), name.c_str(), kLookup | O_NOFOLLOW));
        struct stat info{};
        if (!item || ::fstat(item.get(), &info) != 0 || S_ISDIR(info.st_mode)) {
            return item;
        }
        if (!S_ISLNK(info.st_mode)) {
            return refuse(ENOTDIR);
        }
        std::array<char, PATH_MAX> text{};
        const ssize_t length = ::readlinkat(item.get(), "", text.data(), text.size());
        if (length < 0) {
            return {};
        }
        if (++links_ > kMostLinks) {
            return refuse(ELOOP);
        }
        const std::string_view target(text.data(), static_cast<std::size_t>(length));
        UniqueFd reached =
            follow(target.starts_with('/') ? UniqueFd(::open("/", kLookup | O_DIRECTORY))
                                           : std::move(folder),
                   target);
        struct stat there{};
        if (reached && info.st_uid != 0 && info.st_uid != ::geteuid() &&
            (::fstat(reached.get(), &there) != 0 || there.st_uid != info.st_uid)) {
            return refuse(ELOOP);
        }
        return reached;
    }

    static UniqueFd refuse(int cause) {
        errno = cause;
        return {};
    }

    static constexpr int kMostLinks = 40; // as the kernel
    int links_ = 0;
};

UniqueFd openParent(const std::string& path) {
    UniqueFd parent = openWithoutLinks(path.c_str());
    if (!parent && (errno == ELOOP || errno == ENOSYS || errno == EPERM)) {
        parent = path.size() < PATH_MAX ? Resolver().resolve(path) : UniqueFd();
    }
    return parent;
}

} // namespace

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
    place.parent = openParent(slash == 0 ? "/" : path.substr(0, slash));
    if (!place.parent) {
        return tl::unexpected(errno);
    }
    place.path = path;
    return place;
}

std::string resolvedPath(const ItemPlace& item) {
    std::array<char, PATH_MAX> folder{};
    const std::string link = fmt::format("/proc/self/fd/{}", item.parent.get());
    const ssize_t length = ::readlink(link.c_str(), folder.data(), folder.size());
    if (length <= 0 || folder.front() != '/') {
        return item.path;
    }
    const std::string_view path(folder.data(), static_cast<std::size_t>(length));
    return fmt::format("{}/{}", path == "/" ? "" : path, item.name);
}

tl::expected<ItemPlace, int> placeBeside(const ItemPlace& item, const std::string& name) {
    UniqueFd parent(::openat(item.parent.get(), ".", kLookup | O_DIRECTORY));
    if (!parent) {
        return tl::unexpected(errno);
    }
    return ItemPlace{std::move(parent), name, item.path.substr(0, item.path.rfind('/') + 1) + name};
}

bool isInside(int folder, int outer) {
    const std::optional<Identity> wanted = identityOf(outer);
    UniqueFd here(::openat(folder, ".", kLookup | O_DIRECTORY));
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
        here = UniqueFd(::openat(here.get(), "..", kLookup | O_DIRECTORY));
    }
    return false;
}

} // namespace qv
