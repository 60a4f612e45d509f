#pragma once

#include <algorithm>
#include <array>
#include <string_view>

namespace qv {

// The file systems on which the programs of clients, and the files that they map to execute, may
// stand: file systems of this machine's own disks, which neither hang nor show a file to one and
// another to the next.

inline constexpr std::array<std::string_view, 7> kLocalFileSystems{
    "ext4", "xfs", "btrfs", "f2fs", "overlay", "erofs", "squashfs"};
inline constexpr std::array<std::string_view, 2> kTemporaryFileSystems{"tmpfs", "ramfs"};

/// `type` is the name in mountinfo.
[[nodiscard]] constexpr bool isAllowedFileSystem(std::string_view type, bool allowsTemporary) {
    return std::ranges::find(kLocalFileSystems, type) != kLocalFileSystems.end() ||
           (allowsTemporary &&
            std::ranges::find(kTemporaryFileSystems, type) != kTemporaryFileSystems.end());
}

} // namespace qv
