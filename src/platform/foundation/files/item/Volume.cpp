#include "platform/foundation/files/item/Volume.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <fcntl.h>
#include <fstream>
#include <sstream>
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

bool hasOption(std::string_view options, std::string_view wanted) {
    while (!options.empty()) {
        const std::size_t end = std::min(options.find(','), options.size());
        if (options.substr(0, end) == wanted) {
            return true;
        }
        options.remove_prefix(std::min(end + 1, options.size()));
    }
    return false;
}

// A line of mountinfo: ID parent device root mount-point options [tags...] - type source options
std::optional<Volume> volumeIn(const std::string& line) {
    std::istringstream fields(line);
    Volume volume;
    std::string skipped;
    std::string root;
    std::string options;
    std::string word;
    fields >> volume.mountID >> skipped >> skipped >> skipped >> root >> options;
    while (fields >> word && word != "-") {
    }
    std::string ofFileSystem;
    fields >> volume.type >> skipped >> ofFileSystem;
    if (!fields) {
        return std::nullopt;
    }
    volume.root = unescaped(root);
    volume.isReadOnly = hasOption(options, "ro") || hasOption(ofFileSystem, "ro");
    volume.forbidsTrash =
        hasOption(options, "x-gvfs-notrash") || hasOption(ofFileSystem, "x-gvfs-notrash");
    return volume;
}

std::optional<Volume> volumeMounted(std::optional<std::uint64_t> mountID) {
    if (!mountID) {
        return std::nullopt;
    }
    std::ifstream mounts("/proc/self/mountinfo");
    for (std::string line; std::getline(mounts, line);) {
        std::optional<Volume> volume = volumeIn(line);
        if (volume && volume->mountID == mountID) {
            return volume;
        }
    }
    return std::nullopt;
}

} // namespace

bool Volume::isPseudo() const {
    static constexpr std::array<std::string_view, 17> kPseudo = {
        "proc",    "sysfs",  "devtmpfs",  "devpts",     "tmpfs",   "ramfs",
        "overlay", "cgroup", "cgroup2",   "securityfs", "debugfs", "tracefs",
        "bpf",     "mqueue", "hugetlbfs", "autofs",     "efivarfs"};
    return std::ranges::find(kPseudo, type) != kPseudo.end();
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
