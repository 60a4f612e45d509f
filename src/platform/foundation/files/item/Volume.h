#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace qv {

/// A mount. Bind mounts count: an item cannot be renamed into another volume.
struct Volume {
    std::uint64_t mountID = 0;
    std::string root; ///< the folder at which it is mounted
    std::string type; ///< of the file system, as /proc/self/mountinfo names it
    bool isReadOnly = false;
    bool forbidsTrash = false;     ///< mounted with x-gvfs-notrash
    bool givesFolderGroup = false; ///< new items belong to the group of their folder

    /// Whether it is proc, tmpfs or the like: nothing that is stored there outlives the machine's
    /// session.
    [[nodiscard]] bool isPseudo() const;
    /// A file system of this machine that can be written to, and keeps owners, modes and links as
    /// it is told.
    [[nodiscard]] bool keepsWhatItIsTold() const;
};

/// The volume of an open item; a link is an item itself. None when it cannot be examined.
[[nodiscard]] std::optional<Volume> volumeOf(int item);
/// The same of an item that nobody else can exchange.
[[nodiscard]] std::optional<Volume> volumeOf(const std::string& path);
/// Whether an open item is where something is mounted. Like all here it needs Linux 5.8; before,
/// none is known to be one.
[[nodiscard]] bool isMountPoint(int item) noexcept;
/// The same for any item in an open folder: files can be mounted on files.
[[nodiscard]] bool isMountPoint(int parent, const char* name) noexcept;

} // namespace qv
