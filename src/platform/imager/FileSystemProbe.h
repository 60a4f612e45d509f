#pragma once

#include "platform/foundation/values/Error.h"

#include <tl/expected.hpp>

#include <cstdint>
#include <string>

namespace qv::imager {

/// A file system within a file.
struct FileSystemPlace {
    std::string type;         ///< as libblkid names it: "hfsplus", "iso9660"
    std::uint64_t offset = 0; ///< bytes
    std::uint64_t size = 0;   ///< bytes
};

/// The file system that fills a regular file, or else that of its first partition that has one. The
/// file is read by a confined process. An error when none is recognised.
[[nodiscard]] tl::expected<FileSystemPlace, Error> findFileSystem(int file);

/// Whether the last 512 bytes of a file are the trailer of a compressed disk image.
[[nodiscard]] bool hasImageTrailer(int file);

} // namespace qv::imager
