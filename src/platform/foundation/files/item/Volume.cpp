#include "platform/foundation/files/item/Volume.h"

#include "platform/foundation/os/ProcessText.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <fcntl.h>
#include <fstream>
#include <iterator>
#include <string_view>
#include <sys/stat.h>

namespace qv {

namespace {

constexpr unsigned kMountID = 0x1000;        // STATX_MNT_ID, Linux 5.8
constexpr std::uint64_t kMountRoot = 0x2000; // STATX_ATTR_MOUNT_ROOT

constexpr int kItself = AT_EMPTY_PATH | AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT;

std::optional<std::uint64_t> mountOf(int folder, const char* name) {
    struct statx info{};
    return ::statx(folder, name, kItself, kMountID, &info) == 0 && (info.stx_mask & kMountID) != 0
               ? std::optional<std::uint64_t>(info.stx_mnt_id)
               : std::nullopt;
}

// The kernel writes blanks and backslashes of paths as \ooo.
std::string unescaped(std::string_view text) {
    constexpr std::size_t kDigits = 3;
    std::string plain;
    for (std::size_t i = 0; i < text.size(); ++i) {
        unsigned code = 0;
        const char* digits = text.data() + i + 1;
        if (text[i] == '\\' && i + kDigits < text.size() &&
            std::from_chars(digits, digits + kDigits, code, 8).ptr == digits + kDigits) {
            plain += static_cast<char>(code);
            i += kDigits;
        } else {
            plain += text[i];
        }
    }
    return plain;
}

std::optional<Volume> volumeMounted(std::optional<std::uint64_t> mountID) {
    if (!mountID) {
        return std::nullopt;
    }
    std::ifstream file("/proc/self/mountinfo");
    const std::string mounts{std::istreambuf_iterator<char>(file), {}};
    const auto mount = findMount(mounts, *mountID);
    if (!mount || !*mount) {
        return std::nullopt;
    }
    const auto has = [&](std::string_view option) {
        return hasOption((*mount)->options, option) ||
               hasOption((*mount)->fileSystemOptions, option);
    };
    Volume volume;
    volume.mountID = *mountID;
    volume.type = (*mount)->type;
    volume.root = unescaped((*mount)->point);
    volume.isReadOnly = has("ro");
    volume.forbidsTrash = has("x-gvfs-notrash");
    volume.givesFolderGroup = has("grpid") || has("bsdgroups");
    return volume;
}

} // namespace

bool Volume::isPseudo() const {
    static constexpr std::array<std::string_view, 17> kPseudo = {
        "proc",    "sysfs",  "devtmpfs",  "devpts",     "tmpfs",   "ramfs",
        "overlay", "cgroup", "cgroup2",   "securityfs", "debugfs", "tracefs",
        "bpf",     "mqueue", "hugetlbfs", "autofs",     "efivarfs"};
    return std::ranges::find(kPseudo, type) != kPseudo.end();
}

bool Volume::keepsWhatItIsTold() const {
    static constexpr std::array<std::string_view, 9> kNative = {
        "ext2", "ext3", "ext4", "xfs", "btrfs", "f2fs", "bcachefs", "tmpfs", "overlay"};
    return !isReadOnly && !givesFolderGroup && std::ranges::find(kNative, type) != kNative.end();
}

std::optional<Volume> volumeOf(int item) { return volumeMounted(mountOf(item, "")); }

std::optional<Volume> volumeOf(const std::string& path) {
    return volumeMounted(mountOf(AT_FDCWD, path.c_str()));
}

bool isMountPoint(int item) noexcept { return isMountPoint(item, ""); }

bool isMountPoint(int parent, const char* name) noexcept {
    struct statx info{};
    return ::statx(parent, name, kItself | AT_STATX_DONT_SYNC, 0, &info) == 0 &&
           (info.stx_attributes & kMountRoot) != 0;
}

} // namespace qv
