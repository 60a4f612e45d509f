#pragma once

#include "platform/foundation/os/Descriptor.h"

#include <tl/expected.hpp>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace qv {

/// An item of a folder of the kernel's.
struct FolderItem {
    enum class Kind : std::uint8_t { folder, link, file };
    std::string name;
    std::uint64_t inode;
    Kind kind;
};

/// The items of an open folder, in the kernel's order; none, and errno, when it cannot be read.
[[nodiscard]] std::optional<std::vector<FolderItem>> itemsOf(int folder);

/// The name that the target of a link ends in, as in `subsystem`; none for what is not a link.
[[nodiscard]] std::optional<std::string> targetName(int folder, const char* link);

/// Whether a name may be looked for below a device: one to four parts between slashes, none of them
/// empty, "." or "..", of 255 bytes altogether at most and without NUL.
[[nodiscard]] bool isAttributeName(std::string_view name) noexcept;

/// The folder of a device, held open: another device that takes its path later is never read.
/// Nothing below it is reached through a link.
class DeviceFolder {
public:
    static constexpr std::size_t kLongestValue = std::size_t{64} << 10U;

    /// `path` is below `root`, "/devices/...", no part of it a link. `inode` is the number that it
    /// has to have; 0 for any. ENODEV if it is another one.
    [[nodiscard]] static tl::expected<DeviceFolder, int> open(int root, std::string_view path,
                                                              std::uint64_t inode);

    /// Holds an open folder under a descriptor of its own; null without descriptors.
    [[nodiscard]] static std::shared_ptr<const DeviceFolder> duplicate(int folder);

    [[nodiscard]] int get() const noexcept { return folder_.get(); }
    [[nodiscard]] std::uint64_t inode() const noexcept { return inode_; }
    /// Returns the bytes of an attribute; none if it is missing, is not for reading, fails, has
    /// nothing to read now, or is longer than kLongestValue. May wait for the driver.
    [[nodiscard]] std::optional<std::string> read(std::string_view name) const;
    /// Gives 0 or the errno: ENOENT for what is not the name of an attribute, EACCES if it is not
    /// for writing. May wait for the driver.
    [[nodiscard]] int write(std::string_view name, std::string_view bytes) const;
    /// The names of its files that somebody may read.
    [[nodiscard]] std::vector<std::string> readableNames() const;
    [[nodiscard]] bool has(const char* name) const;

private:
    DeviceFolder(Descriptor folder, std::uint64_t inode) noexcept
        : folder_(std::move(folder)), inode_(inode) {}
    [[nodiscard]] Descriptor openAttribute(std::string_view name, int flags) const;

    Descriptor folder_;
    std::uint64_t inode_;
};

} // namespace qv
