#include "platform/foundation/files/manager/FileMetadata.h"

#include "platform/foundation/files/item/ChangeMode.h"

#include <fmt/core.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <fcntl.h>
#include <linux/limits.h>
#include <linux/xattr.h>
#include <string>
#include <string_view>
#include <sys/xattr.h>
#include <unistd.h>
#include <vector>

namespace qv {

namespace {

constexpr mode_t kSetIDBits = 06000;

/// The extended attributes of an open item.
struct OpenItem {
    int fd;
    [[nodiscard]] ssize_t list(char* names, std::size_t size) const {
        return ::flistxattr(fd, names, size);
    }
    [[nodiscard]] ssize_t get(const char* name, void* value, std::size_t size) const {
        return ::fgetxattr(fd, name, value, size);
    }
    [[nodiscard]] int set(const char* name, const void* value, std::size_t size) const {
        return ::fsetxattr(fd, name, value, size, 0);
    }
};

/// The attributes of an item that must not be opened. The folder is reached through its descriptor.
class AttributePath {
public:
    AttributePath(int parent, const char* name)
        : path_(fmt::format("/proc/self/fd/{}/{}", parent, name)) {}
    [[nodiscard]] ssize_t list(char* names, std::size_t size) const {
        return ::llistxattr(path_.c_str(), names, size);
    }
    [[nodiscard]] ssize_t get(const char* name, void* value, std::size_t size) const {
        return ::lgetxattr(path_.c_str(), name, value, size);
    }
    [[nodiscard]] int set(const char* name, const void* value, std::size_t size) const {
        return ::lsetxattr(path_.c_str(), name, value, size, 0);
    }

private:
    std::string path_;
};

// Labels of security modules and the like are the system's business where it does not let us. But a
// program without its capabilities is another program.
bool mayBeMissing(std::string_view name, int errorNumber) {
    const bool isSystems = !name.starts_with("user.") && name != XATTR_NAME_CAPS;
    return errorNumber == ENOTSUP || errorNumber == ENODATA ||
           (errorNumber == EPERM && (isSystems || ::geteuid() != 0));
}

template <typename Item> int copyAttribute(const Item& from, const Item& to, const char* name) {
    std::vector<char> value(256);
    ssize_t size = from.get(name, value.data(), value.size());
    if (size < 0 && errno == ERANGE) {
        value.resize(XATTR_SIZE_MAX);
        size = from.get(name, value.data(), value.size());
    }
    if (size < 0 || to.set(name, value.data(), static_cast<std::size_t>(size)) != 0) {
        return mayBeMissing(name, errno) ? 0 : errno;
    }
    return 0;
}

bool isSystems(std::string_view name) {
    return name.starts_with("security.") || name.starts_with("trusted.");
}

template <typename Item>
int copyAttributes(const Item& from, const Item& to, Privileges privileges) {
    std::array<char, 1024> few; // NOLINT(*-member-init): it is filled by the kernel
    std::vector<char> many;
    std::string_view names;
    ssize_t size = from.list(few.data(), few.size());
    if (size > 0) {
        names = {few.data(), static_cast<std::size_t>(size)};
    } else if (size < 0 && errno == ERANGE) {
        many.resize(XATTR_LIST_MAX);
        size = from.list(many.data(), many.size());
        names = {many.data(), size > 0 ? static_cast<std::size_t>(size) : 0};
    }
    if (size < 0) {
        return errno == ENOTSUP || errno == ENOENT ? 0 : errno;
    }
    while (!names.empty()) { // each ends in a NUL
        const bool isLeftOut = privileges == Privileges::leftOut && isSystems(names.data());
        if (const int failure = isLeftOut ? 0 : copyAttribute(from, to, names.data())) {
            return failure;
        }
        names.remove_prefix(names.find('\0') + 1);
    }
    return 0;
}

// Whether the owner may stay another one.
bool isNotPermitted(int errorNumber) { return errorNumber == EPERM || errorNumber == EINVAL; }

mode_t permittedMode(mode_t mode, bool mayHaveSetID) {
    return mode & kModeBits & ~(mayHaveSetID ? 0 : kSetIDBits);
}

std::array<timespec, 2> datesOf(const struct stat& info) { return {info.st_atim, info.st_mtim}; }

} // namespace

int copyMetadata(int from, int to, const struct stat& info, Owner now, Privileges privileges) {
    bool mayHaveSetID = privileges == Privileges::kept;
    if (now != Owner{info.st_uid, info.st_gid} && ::fchown(to, info.st_uid, info.st_gid) != 0) {
        if (!isNotPermitted(errno)) {
            return errno;
        }
        mayHaveSetID = false;
    }
    if (const int failure = copyAttributes(OpenItem{from}, OpenItem{to}, privileges)) {
        return failure;
    }
    return ::fchmod(to, permittedMode(info.st_mode, mayHaveSetID)) == 0 &&
                   ::futimens(to, datesOf(info).data()) == 0
               ? 0
               : errno;
}

int copyMetadata(int fromParent, const char* fromName, int toParent, const char* toName,
                 const struct stat& info, Privileges privileges) {
    bool mayHaveSetID = privileges == Privileges::kept;
    if (::fchownat(toParent, toName, info.st_uid, info.st_gid, AT_SYMLINK_NOFOLLOW) != 0) {
        if (!isNotPermitted(errno)) {
            return errno;
        }
        mayHaveSetID = false;
    }
    if (const int failure = copyAttributes(AttributePath(fromParent, fromName),
                                           AttributePath(toParent, toName), privileges)) {
        return failure;
    }
    if (!S_ISLNK(info.st_mode) &&
        changeModeNotFollowing(toParent, toName, permittedMode(info.st_mode, mayHaveSetID)) != 0) {
        return errno;
    }
    return ::utimensat(toParent, toName, datesOf(info).data(), AT_SYMLINK_NOFOLLOW) == 0 ? 0
                                                                                         : errno;
}

void removeAccessLists(int item) noexcept {
    static_cast<void>(::fremovexattr(item, "system.posix_acl_access"));
    static_cast<void>(::fremovexattr(item, "system.posix_acl_default"));
}

} // namespace qv
