#include "platform/iokit/device/DeviceFolder.h"

#include "platform/foundation/os/FileBytes.h"
#include "platform/foundation/os/Folder.h"
#include "platform/iokit/device/TakeField.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace qv {

namespace {

constexpr std::size_t kLongestName = 255;
constexpr std::size_t kMostParts = 4;

FolderItem::Kind kindOf(int folder, const dirent64& entry) {
    unsigned char type = entry.d_type;
    if (type == DT_UNKNOWN) {
        struct stat info{};
        if (::fstatat(folder, entry.d_name, &info, AT_SYMLINK_NOFOLLOW) == 0) {
            type = static_cast<unsigned char>(IFTODT(info.st_mode));
        }
    }
    return type == DT_DIR   ? FolderItem::Kind::folder
           : type == DT_LNK ? FolderItem::Kind::link
                            : FolderItem::Kind::file;
}

// The folder of a path, none of whose parts is a link.
Descriptor openWithoutLinks(int root, const std::string& path) {
    open_how how{};
    how.flags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;
    how.resolve = RESOLVE_NO_SYMLINKS | RESOLVE_BENEATH;
    return Descriptor(
        static_cast<int>(::syscall(SYS_openat2, root, path.c_str(), &how, sizeof how)));
}

} // namespace

std::optional<std::vector<FolderItem>> itemsOf(int folder) {
    alignas(dirent64) std::array<char, 16384> buffer; // NOLINT: filled by the kernel
    std::vector<FolderItem> items;
    items.reserve(32);
    for (;;) {
        const ssize_t length = ::getdents64(folder, buffer.data(), buffer.size());
        if (length < 0) {
            return std::nullopt;
        }
        if (length == 0) {
            return items;
        }
        for (std::size_t at = 0; at < static_cast<std::size_t>(length);) {
            const auto* entry = reinterpret_cast<const dirent64*>(&buffer[at]); // as it is laid out
            at += entry->d_reclen;
            const std::string_view name(&entry->d_name[0]);
            if (name != "." && name != "..") {
                items.push_back({std::string(name), entry->d_ino, kindOf(folder, *entry)});
            }
        }
    }
}

std::optional<std::string> targetName(int folder, const char* link) {
    std::array<char, PATH_MAX> buffer; // NOLINT: filled by the kernel
    const ssize_t length = ::readlinkat(folder, link, buffer.data(), buffer.size());
    if (length <= 0) {
        return std::nullopt;
    }
    const std::string_view target(buffer.data(), static_cast<std::size_t>(length));
    return std::string(target.substr(target.rfind('/') + 1));
}

bool isAttributeName(std::string_view name) noexcept {
    if (name.empty() || name.size() > kLongestName || name.find('\0') != std::string_view::npos ||
        name.back() == '/') {
        return false;
    }
    std::size_t parts = 0;
    while (!name.empty()) {
        const std::string_view part = takeField(name, '/');
        if (part.empty() || part == "." || part == ".." || ++parts > kMostParts) {
            return false;
        }
    }
    return true;
}

tl::expected<DeviceFolder, int> DeviceFolder::open(int root, std::string_view path,
                                                   std::uint64_t inode) {
    Descriptor folder;
    path.remove_prefix(std::min<std::size_t>(1, path.size()));
    while (!path.empty()) {
        std::string piece;
        do {
            const std::string_view part = takeField(path, '/');
            if (part.empty() || part == "." || part == ".." || part.size() > kLongestName) {
                return tl::unexpected(ENOENT);
            }
            piece.append(part).push_back('/');
        } while (!path.empty() && piece.size() + kLongestName + 1 < PATH_MAX);
        folder = openWithoutLinks(folder ? folder.get() : root, piece);
        if (!folder) {
            return tl::unexpected(errno);
        }
    }
    struct stat info{};
    if (!folder || ::fstat(folder.get(), &info) != 0 || (inode != 0 && info.st_ino != inode)) {
        return tl::unexpected(ENODEV);
    }
    return DeviceFolder(std::move(folder), info.st_ino);
}

std::shared_ptr<const DeviceFolder> DeviceFolder::duplicate(int folder) {
    Descriptor copy(::fcntl(folder, F_DUPFD_CLOEXEC, 0));
    const auto identity = identityOf(copy.get());
    // The constructor is private, and a shared folder is not moved from.
    return identity ? std::make_shared<const DeviceFolder>(
                          DeviceFolder(std::move(copy), identity->inode))
                    : nullptr;
}

Descriptor DeviceFolder::openAttribute(std::string_view name, int flags) const {
    if (!isAttributeName(name)) {
        errno = ENOENT;
        return {};
    }
    Descriptor parent;
    std::string part(takeField(name, '/'));
    while (!name.empty()) {
        parent = openFolderIn(parent ? parent.get() : get(), part.c_str());
        if (!parent) {
            return {};
        }
        part = takeField(name, '/');
    }
    const int folder = parent ? parent.get() : get();
    struct stat info{};
    if (::fstatat(folder, part.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0) {
        return {};
    }
    if (!S_ISREG(info.st_mode)) { // to open a FIFO or a device would do something
        errno = S_ISDIR(info.st_mode) ? EISDIR : ELOOP;
        return {};
    }
    // Root could open any file, whatever it is for.
    const mode_t wanted =
        flags == O_RDONLY ? S_IRUSR | S_IRGRP | S_IROTH : S_IWUSR | S_IWGRP | S_IWOTH;
    if ((info.st_mode & wanted) == 0) {
        errno = EACCES;
        return {};
    }
    return Descriptor(
        ::openat(folder, part.c_str(), flags | O_NONBLOCK | O_NOFOLLOW | O_NOCTTY | O_CLOEXEC));
}

std::optional<std::string> DeviceFolder::read(std::string_view name) const {
    const Descriptor file = openAttribute(name, O_RDONLY);
    if (!file) {
        return std::nullopt;
    }
    // Most attributes are short, and the kernel gives up to a page at a time.
    std::array<char, 4096> buffer; // NOLINT: filled by the kernel
    std::string bytes;
    for (;;) {
        const ssize_t length = ::read(file.get(), buffer.data(), buffer.size());
        if (length < 0 && errno == EINTR) {
            continue;
        }
        if (length < 0) {
            return std::nullopt;
        }
        if (length == 0) {
            return bytes;
        }
        bytes.append(buffer.data(), static_cast<std::size_t>(length));
        if (bytes.size() > kLongestValue) {
            return std::nullopt;
        }
    }
}

int DeviceFolder::write(std::string_view name, std::string_view bytes) const {
    const Descriptor file = openAttribute(name, O_WRONLY);
    return file ? writeAll(file.get(), bytes) : errno;
}

std::vector<std::string> DeviceFolder::readableNames() const {
    std::vector<std::string> names;
    // A descriptor of its own: the place in the listing belongs to the description.
    const Descriptor listed = openFolderIn(get(), ".");
    for (FolderItem& item : itemsOf(listed.get()).value_or(std::vector<FolderItem>())) {
        if (item.kind == FolderItem::Kind::file) {
            names.push_back(std::move(item.name));
        }
    }
    return names;
}

bool DeviceFolder::has(const char* name) const {
    struct stat info{};
    return ::fstatat(get(), name, &info, AT_SYMLINK_NOFOLLOW) == 0;
}

} // namespace qv
