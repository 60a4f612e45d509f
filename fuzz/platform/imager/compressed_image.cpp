// Any bytes as a compressed disk image. Its runs make up each partition, and the bytes written of
// one end where the partition does, or before.

#include "platform/foundation/os/Descriptor.h"
#include "platform/foundation/os/FileBytes.h"
#include "platform/imager/PartitionRuns.h"

#include <cstdlib>
#include <string>
#include <sys/mman.h>
#include <unistd.h>

namespace {

void require(bool holds) {
    if (!holds) {
        std::abort();
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
    constexpr std::uint64_t kLargest = std::uint64_t{1} << 22U; // of what is tried here
    const qv::Descriptor image(::memfd_create("image", MFD_CLOEXEC));
    require(qv::writeAll(image.get(), std::string(data, data + size)) == 0);
    const auto partitions = qv::imager::partitionsIn(image.get());
    if (!partitions) {
        return 0;
    }
    for (const auto& partition : *partitions) {
        std::uint64_t total = 0;
        for (const auto& run : partition.runs) {
            total += run.size;
            require(run.kind == qv::imager::RunKind::zero || run.offset + run.stored <= size);
        }
        require(total == partition.size);
        if (partition.size > kLargest) {
            continue;
        }
        const qv::Descriptor file(::memfd_create("partition", MFD_CLOEXEC));
        const bool isDone = !qv::imager::decode(image.get(), partition, file.get());
        const auto end = static_cast<std::uint64_t>(::lseek(file.get(), 0, SEEK_CUR));
        require(isDone ? end == partition.size : end <= partition.size);
    }
    return 0;
}
