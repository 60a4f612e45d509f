#include "platform/foundation/files/item/ItemRecord.h"

#include "platform/foundation/os/Descriptor.h"

#include <array>
#include <cerrno>
#include <climits>
#include <fcntl.h>
#include <linux/magic.h>
#include <sys/sysmacros.h>
#include <sys/vfs.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace qv {

namespace {

constexpr unsigned kWantedMountID = 0x1000;       // STATX_MNT_ID, Linux 5.8
constexpr std::uint64_t kMountPoint = 0x2000;     // STATX_ATTR_MOUNT_ROOT
constexpr std::uint64_t kProtected = 0x10 | 0x20; // STATX_ATTR_IMMUTABLE, STATX_ATTR_APPEND
constexpr __fsword_t kFollowsNoLinks = 0x2000;    // of the mount

// Returns 0 or an errno.
int readTarget(int parent, const char* name, ItemRecord& record) {
    const Descriptor link(::openat(parent, name, O_PATH | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK));
    const int held = *name == '\0' ? parent : link.get();
    std::array<char, PATH_MAX> text; // NOLINT(*-member-init): it is filled by the kernel
    const ssize_t length = ::readlinkat(held, "", text.data(), text.size());
    struct statfs system{};
    if (length < 0 || ::fstatfs(held, &system) != 0) {
        return errno;
    }
    record.target.assign(text.data(), static_cast<std::size_t>(length));
    record.isPlainLink = length > 0 && static_cast<std::size_t>(length) < text.size() &&
                         system.f_type != PROC_SUPER_MAGIC &&
                         (system.f_flags & kFollowsNoLinks) == 0;
    return 0;
}

} // namespace

tl::expected<ItemRecord, int> recordOf(int parent, const char* name) {
    struct statx info{};
    constexpr int kItself = AT_EMPTY_PATH | AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT;
    if (::statx(parent, name, kItself, STATX_BASIC_STATS | kWantedMountID, &info) != 0) {
        return tl::unexpected(errno);
    }
    ItemRecord record;
    record.mode = info.stx_mode;
    record.user = info.stx_uid;
    record.group = info.stx_gid;
    record.names = info.stx_nlink;
    record.identity = {::gnu_dev_makedev(info.stx_dev_major, info.stx_dev_minor), info.stx_ino};
    record.modified = {info.stx_mtime.tv_sec, static_cast<long>(info.stx_mtime.tv_nsec)};
    record.mountID = info.stx_mnt_id;
    record.isMountPoint = (info.stx_attributes & kMountPoint) != 0;
    record.isProtected = (info.stx_attributes & kProtected) != 0;
    const int fault = S_ISLNK(record.mode) ? readTarget(parent, name, record) : 0;
    return fault == 0 ? tl::expected<ItemRecord, int>(std::move(record)) : tl::unexpected(fault);
}

bool handsDownAccess(int folder) {
    const Descriptor open(::openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    const bool hasNone = open &&
                         ::fgetxattr(open.get(), "system.posix_acl_default", nullptr, 0) < 0 &&
                         (errno == ENODATA || errno == ENOTSUP);
    return !hasNone;
}

} // namespace qv
