#pragma once

#include <tl/expected.hpp>

#include <cstdint>
#include <sys/types.h>

namespace qv {

/// One file with one content: a write to the file changes one of these numbers, unless it does so
/// within the tick of the file system's clock in which the file was looked at.
struct FileKey {
    dev_t device = 0;
    ino_t inode = 0;
    long generation = 0; ///< of the inode; 0 where the file system keeps none
    off_t size = 0;
    std::int64_t modified = 0; ///< nanoseconds
    std::int64_t changed = 0;  ///< nanoseconds
    uid_t owner = 0;

    /// The key of an open file, or the errno.
    [[nodiscard]] static tl::expected<FileKey, int> of(int fd);
    friend bool operator==(const FileKey&, const FileKey&) = default;
};

} // namespace qv
