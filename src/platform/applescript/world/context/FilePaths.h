#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace qv::applescript::world {

/// The name of the volume at the root.
inline constexpr std::string_view kStartupDisk = "Startup Disk";

/// `Startup Disk:Applications:` for /Applications/: names with colons between them, the first that
/// of a volume. A slash in a name stands for a colon in the file's, and the reverse. Volumes other
/// than the root are what is mounted on a folder of /Volumes, /mnt or /media/USER, named like it.
/// Bytes that are not UTF-8 become U+FFFD.
[[nodiscard]] std::string colonPathOf(std::string_view posixPath);
/// The reverse; a volume that is not mounted stands for the root. A path that begins with a slash
/// is one already.
[[nodiscard]] std::string posixPathOf(std::string_view colonPath);

/// A single name, in either direction.
[[nodiscard]] std::string exchangedSeparators(std::string_view name);

/// The folders at which volumes are mounted, the root first.
[[nodiscard]] std::vector<std::string> volumes();
/// The name of the volume that is mounted there.
[[nodiscard]] std::string volumeName(std::string_view mountPoint);

[[nodiscard]] std::string_view lastName(std::string_view path) noexcept;
/// The folder of a path; "/" for a name at the root and the root itself.
[[nodiscard]] std::string folderOf(std::string_view path);
[[nodiscard]] std::string joined(std::string_view folder, std::string_view name);

/// Whether a name is one that an item can be given.
[[nodiscard]] bool isItemName(std::string_view name) noexcept;

} // namespace qv::applescript::world
