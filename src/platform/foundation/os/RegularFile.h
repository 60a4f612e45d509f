#pragma once

#include "platform/foundation/os/Descriptor.h"

#include <cstddef>
#include <optional>
#include <string>
#include <sys/stat.h>

namespace qv {

/// Opens a file for reading, links followed, if it is a regular one with content. Nothing else is
/// opened even for a moment: a FIFO would wait, a device act. None, and errno (EINVAL for any other
/// item), otherwise. Needs a mounted /proc.
[[nodiscard]] Descriptor openRegularFile(const std::string& path);
/// The same for an item that is held.
[[nodiscard]] Descriptor openRegularFile(int item);

/// The content of an open file; none, and errno, when it is not a regular file (EINVAL) or longer
/// than `most` bytes (EFBIG).
[[nodiscard]] std::optional<std::string> contentOfRegularFile(int file, std::size_t most);

/// Whether it is a regular file that somebody may execute.
[[nodiscard]] bool isProgramFile(const struct stat& info) noexcept;

} // namespace qv
