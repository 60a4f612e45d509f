#include "platform/imager/FileSystemProbe.h"

#include "platform/foundation/process/worker/Worker.h"
#include "platform/foundation/values/Value.h"
#include "platform/imager/ImageFailure.h"

#include <array>
#include <blkid.h>
#include <memory>
#include <optional>
#include <string_view>
#include <sys/stat.h>

namespace qv::imager {

namespace {

constexpr std::string_view kRecognising = "recognising the file system";
constexpr std::uint64_t kSector = 512; // the unit in which libblkid counts partitions

struct ProbeReleaser {
    void operator()(blkid_struct_probe* probe) const noexcept { ::blkid_free_probe(probe); }
};
using Probe = std::unique_ptr<blkid_struct_probe, ProbeReleaser>;

// A probe of a part of a file; size 0 stands for all of it.
Probe probeOf(int file, std::uint64_t offset, std::uint64_t size) {
    Probe probe(::blkid_new_probe());
    if (probe && ::blkid_probe_set_device(probe.get(), file, static_cast<blkid_loff_t>(offset),
                                          static_cast<blkid_loff_t>(size)) != 0) {
        probe.reset();
    }
    return probe;
}

std::optional<FileSystemPlace> fileSystemAt(int file, std::uint64_t offset, std::uint64_t size) {
    const Probe probe = probeOf(file, offset, size);
    if (!probe || ::blkid_probe_enable_superblocks(probe.get(), 1) != 0 ||
        ::blkid_probe_set_superblocks_flags(probe.get(), BLKID_SUBLKS_TYPE | BLKID_SUBLKS_USAGE) !=
            0 ||
        ::blkid_do_safeprobe(probe.get()) != 0) {
        return std::nullopt;
    }
    const char* usage = nullptr;
    const char* type = nullptr;
    if (::blkid_probe_lookup_value(probe.get(), "USAGE", &usage, nullptr) != 0 ||
        ::blkid_probe_lookup_value(probe.get(), "TYPE", &type, nullptr) != 0 ||
        std::string_view(usage) != "filesystem") {
        return std::nullopt;
    }
    return FileSystemPlace{.type = type,
                           .offset = offset,
                           .size = static_cast<std::uint64_t>(::blkid_probe_get_size(probe.get()))};
}

std::optional<FileSystemPlace> fileSystemOfPartition(int file) {
    const Probe probe = probeOf(file, 0, 0);
    if (!probe || ::blkid_probe_enable_superblocks(probe.get(), 0) != 0 ||
        ::blkid_probe_enable_partitions(probe.get(), 1) != 0) {
        return std::nullopt;
    }
    auto* const list = ::blkid_probe_get_partitions(probe.get());
    const int count = list == nullptr ? 0 : ::blkid_partlist_numof_partitions(list);
    const auto total = static_cast<std::uint64_t>(::blkid_probe_get_size(probe.get()));
    for (int index = 0; index < count; ++index) {
        auto* const partition = ::blkid_partlist_get_partition(list, index);
        const auto start = static_cast<std::uint64_t>(::blkid_partition_get_start(partition));
        const auto sectors = static_cast<std::uint64_t>(::blkid_partition_get_size(partition));
        const std::uint64_t end = total / kSector;
        if (sectors == 0 || start > end || sectors > end - start) {
            continue;
        }
        if (auto found = fileSystemAt(file, start * kSector, sectors * kSector)) {
            return found;
        }
    }
    return std::nullopt;
}

Value valueOf(const FileSystemPlace& place) {
    return Value::array({Value::string(place.type),
                         Value::integer(static_cast<std::int64_t>(place.offset)),
                         Value::integer(static_cast<std::int64_t>(place.size))});
}

// The reader of the file may have been led to say anything.
tl::expected<FileSystemPlace, Error> placeIn(const Value& answer, int file) {
    struct stat info{};
    if (!answer.is(Value::Kind::array) || answer.asArray().empty()) {
        return failure(kRecognising, "there is none that is known");
    }
    const auto parts = answer.asArray();
    if (parts.size() != 3 || !parts[0].is(Value::Kind::string) ||
        !parts[1].is(Value::Kind::integer) || !parts[2].is(Value::Kind::integer) ||
        ::fstat(file, &info) != 0 || parts[1].asInteger() < 0 || parts[2].asInteger() <= 0 ||
        parts[1].asInteger() > info.st_size ||
        parts[2].asInteger() > info.st_size - parts[1].asInteger()) {
        return failure(kRecognising, "its place is outside of the file");
    }
    return FileSystemPlace{.type = std::string(parts[0].asString()),
                           .offset = static_cast<std::uint64_t>(parts[1].asInteger()),
                           .size = static_cast<std::uint64_t>(parts[2].asInteger())};
}

} // namespace

tl::expected<FileSystemPlace, Error> findFileSystem(int file) {
    constexpr std::chrono::minutes kPatience{1};
    const WorkResult found = performWork({.as = Confinement{kImageReader},
                                          .run = [file](const Value&) -> WorkResult {
                                              auto place = fileSystemAt(file, 0, 0);
                                              if (!place) {
                                                  place = fileSystemOfPartition(file);
                                              }
                                              return place ? valueOf(*place) : Value::array({});
                                          },
                                          .patience = kPatience,
                                          .descriptors = {file}});
    if (!found) {
        return failure(kRecognising, found.error().localizedDescription());
    }
    return placeIn(*found, file);
}

bool hasImageTrailer(int file) {
    constexpr std::string_view kMark = "koly";
    constexpr std::uint64_t kTrailer = 512;
    struct stat info{};
    std::array<char, kMark.size()> mark{};
    return ::fstat(file, &info) == 0 && static_cast<std::uint64_t>(info.st_size) >= kTrailer &&
           readExactly(file, static_cast<std::uint64_t>(info.st_size) - kTrailer, mark) == 0 &&
           std::string_view(mark.data(), mark.size()) == kMark;
}

} // namespace qv::imager
