#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace qv {

/// A mount. Bind mounts count: what cannot be renamed across is another volume.
struct Volume {
    std::uint64_t mountID = 0;
    std::string root; ///< where it is mounted
    std::string type; ///< of the file system, as /proc/self/mountinfo names it
    bool isReadOnly = false;
    bool forbidsTrash = false; ///< mounted with x-gvfs-notrash

    /// Proc, tmpfs and the like: nothing that is stored there outlives the machine's session.
    [[nodiscard]] bool isPseudo() const;
};

/// The volume of an item; a link is an item itself. None when it cannot be examined.
[[nodiscard]] std::optional<Volume> volumeOf(const std::string& path);
/// Whether an open folder is where something is mounted. Like all here it needs Linux 5.8; before,
/// no folder is known to be one.
[[nodiscard]] bool isMountPoint(int folder) noexcept;
/// The same for any item in an open folder: files can be mounted on files.
[[nodiscard]] bool isMountPoint(int parent, const char* name) noexcept;
/// Whether a path names the root of a volume.
[[nodiscard]] bool isVolumeRoot(const std::string& path);

} // namespace qv
