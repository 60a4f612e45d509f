#pragma once

#include "platform/foundation/values/Error.h"

#include <cstdint>
#include <optional>
#include <vector>

namespace qv::imager {

// The partitions of a compressed disk image, as its property list describes them. Everything here
// reads a stranger's bytes: call it in a confined process.

enum class RunKind : std::uint8_t { zero, raw, zlib };

/// A piece of a partition and where the image has it.
struct Run {
    RunKind kind;
    std::uint64_t size;   ///< in the partition, bytes
    std::uint64_t offset; ///< in the image, bytes
    std::uint64_t stored; ///< bytes in the image
};

/// The runs follow one another and make up the whole partition.
struct StoredPartition {
    std::uint64_t size = 0;                ///< bytes
    std::optional<std::uint32_t> checksum; ///< CRC-32 of the partition, if there is one
    std::vector<Run> runs;
};

/// The partitions of an image, in the order of its list. None where it has runs of other kinds,
/// other checksums, parts that overlap or are missing, or no list that can be read.
[[nodiscard]] std::optional<std::vector<StoredPartition>> partitionsIn(int image);

/// Writes a partition into an empty file from its offset on; runs of zeros become holes. The error
/// names the damage (a wrong checksum too), or what kept the file from being written.
[[nodiscard]] Error decode(int image, const StoredPartition& partition, int file);

} // namespace qv::imager
