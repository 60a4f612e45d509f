#include "platform/imager/PartitionRuns.h"

#include "platform/foundation/os/FileBytes.h"
#include "platform/foundation/plist/PropertyList.h"
#include "platform/foundation/values/Value.h"
#include "platform/imager/ImageFailure.h"

#include <algorithm>
#include <cerrno>
#include <libdeflate.h>
#include <limits>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

namespace qv::imager {

namespace {

constexpr std::uint64_t kSectorSize = 512;
constexpr std::string_view kDecoding = "unpacking";
constexpr std::string_view kDamaged = "the image is damaged";

std::uint64_t bigEndian(std::string_view bytes) {
    constexpr unsigned kBits = 8;
    std::uint64_t number = 0;
    for (const char each : bytes) {
        number = (number << kBits) | static_cast<unsigned char>(each);
    }
    return number;
}

std::uint64_t number32(std::string_view record, std::size_t offset) {
    return bigEndian(record.substr(offset, sizeof(std::uint32_t)));
}
std::uint64_t number64(std::string_view record, std::size_t offset) {
    return bigEndian(record.substr(offset, sizeof(std::uint64_t)));
}

struct Span {
    std::uint64_t offset;
    std::uint64_t size;
};

bool isWithin(const Span& part, std::uint64_t whole) {
    return part.offset <= whole && part.size <= whole - part.offset;
}

// The places of the last 512 bytes of an image, all within the file.
struct Trailer {
    Span fork;
    Span list;
};

std::optional<Trailer> trailerOf(int image) {
    constexpr std::size_t kSize = 512;
    constexpr std::size_t kForkAt = 24;
    constexpr std::size_t kSegmentsAt = 60;
    constexpr std::size_t kListAt = 216;
    struct stat info{};
    std::string text(kSize, '\0');
    if (::fstat(image, &info) != 0 || info.st_size < static_cast<off_t>(kSize) ||
        readExactly(image, static_cast<std::uint64_t>(info.st_size) - kSize, text) != 0) {
        return std::nullopt;
    }
    const Trailer trailer{
        .fork = {number64(text, kForkAt), number64(text, kForkAt + sizeof(std::uint64_t))},
        .list = {number64(text, kListAt), number64(text, kListAt + sizeof(std::uint64_t))}};
    const auto size = static_cast<std::uint64_t>(info.st_size);
    return number32(text, kSegmentsAt) <= 1 && isWithin(trailer.fork, size) &&
                   isWithin(trailer.list, size)
               ? std::optional(trailer)
               : std::nullopt;
}

std::optional<RunKind> kindOf(std::uint64_t number) {
    constexpr std::uint64_t kIgnored = 2;
    constexpr std::uint64_t kZlib = 0x80000005;
    switch (number) {
    case 0:
    case kIgnored:
        return RunKind::zero;
    case 1:
        return RunKind::raw;
    case kZlib:
        return RunKind::zlib;
    default:
        return std::nullopt;
    }
}

// A run from its 40 bytes, if its place is within the fork, and what it takes fits into memory.
std::optional<Run> runIn(std::string_view record, const Span& fork, std::uint64_t tableOffset) {
    constexpr std::uint64_t kLargest = std::uint64_t{64} << 20U;
    constexpr std::size_t kCountAt = 16;
    constexpr std::size_t kOffsetAt = 24;
    constexpr std::size_t kStoredAt = 32;
    const auto kind = kindOf(number32(record, 0));
    const std::uint64_t sectors = number64(record, kCountAt);
    const Span place{number64(record, kOffsetAt), number64(record, kStoredAt)};
    if (!kind || sectors > std::numeric_limits<off_t>::max() / kSectorSize) {
        return std::nullopt;
    }
    Run run{.kind = *kind, .size = sectors * kSectorSize, .offset = 0, .stored = place.size};
    if (run.kind == RunKind::zero) {
        return run;
    }
    if (tableOffset > fork.size || !isWithin(place, fork.size - tableOffset) ||
        (run.kind == RunKind::raw ? run.stored != run.size
                                  : std::max(run.stored, run.size) > kLargest)) {
        return std::nullopt;
    }
    run.offset = fork.offset + tableOffset + place.offset;
    return run;
}

std::optional<StoredPartition> partitionIn(std::string_view table, const Span& fork) {
    constexpr std::string_view kMark = "mish";
    constexpr std::size_t kSectorsAt = 16;
    constexpr std::size_t kDataAt = 24;
    constexpr std::size_t kChecksumAt = 64;
    constexpr std::size_t kChecksumValueAt = 72;
    constexpr std::size_t kCountAt = 200;
    constexpr std::size_t kRunsAt = 204;
    constexpr std::size_t kRunSize = 40;
    constexpr std::size_t kFirstSectorAt = 8;
    constexpr std::uint64_t kCRC32 = 2;
    constexpr std::uint64_t kComment = 0x7ffffffe;
    constexpr std::uint64_t kEnd = 0xffffffff;
    if (table.size() < kRunsAt || !table.starts_with(kMark) ||
        number32(table, kCountAt) > (table.size() - kRunsAt) / kRunSize) {
        return std::nullopt;
    }
    StoredPartition partition;
    const std::uint64_t checksumKind = number32(table, kChecksumAt);
    if (checksumKind == kCRC32) {
        partition.checksum = static_cast<std::uint32_t>(number32(table, kChecksumValueAt));
    } else if (checksumKind != 0) {
        return std::nullopt;
    }
    for (std::uint64_t index = 0; index < number32(table, kCountAt); ++index) {
        const std::string_view record = table.substr(kRunsAt + index * kRunSize, kRunSize);
        if (const auto kind = number32(record, 0); kind == kComment || kind == kEnd) {
            continue;
        }
        const auto run = runIn(record, fork, number64(table, kDataAt));
        if (!run || number64(record, kFirstSectorAt) != partition.size / kSectorSize ||
            run->size > std::numeric_limits<off_t>::max() - partition.size) {
            return std::nullopt;
        }
        partition.size += run->size;
        partition.runs.push_back(*run);
    }
    return number64(table, kSectorsAt) == partition.size / kSectorSize
               ? std::optional(std::move(partition))
               : std::nullopt;
}

/// Writes the runs of one partition, one after the other.
class Decoder {
public:
    Decoder(int image, int file) : image_(image), file_(file) {}

    Error write(const Run& run) {
        switch (run.kind) {
        case RunKind::zero:
            return leaveHole(run.size);
        case RunKind::raw:
            return copy(run);
        case RunKind::zlib:
            return inflate(run);
        }
        return {};
    }
    [[nodiscard]] std::uint32_t checksum() const { return checksum_; }

private:
    struct Releaser {
        void operator()(libdeflate_decompressor* inflater) const noexcept {
            ::libdeflate_free_decompressor(inflater);
        }
    };
    static constexpr std::uint64_t kPiece = std::uint64_t{1} << 20U;

    static std::span<char> room(std::string& buffer, std::size_t count) {
        if (buffer.size() < count) {
            buffer.resize(count);
        }
        return std::span(buffer).first(count);
    }
    void count(std::span<const char> bytes) {
        checksum_ = ::libdeflate_crc32(checksum_, bytes.data(), bytes.size());
    }
    Error append(std::span<const char> bytes) {
        count(bytes);
        const int status = writeAll(file_, {bytes.data(), bytes.size()});
        return status == 0 ? Error() : failed(kDecoding, status);
    }
    Error leaveHole(std::uint64_t size) {
        const std::string zeros(std::min(kPiece, size), '\0');
        for (std::uint64_t left = size; left > 0; left -= std::min(kPiece, left)) {
            count(std::span(zeros).first(std::min(kPiece, left)));
        }
        return ::lseek(file_, static_cast<off_t>(size), SEEK_CUR) < 0 ? failed(kDecoding, errno)
                                                                      : Error();
    }
    Error copy(const Run& run) {
        for (std::uint64_t at = 0; at < run.size; at += kPiece) {
            const auto piece = room(plain_, std::min(kPiece, run.size - at));
            if (const int status = readExactly(image_, run.offset + at, piece); status != 0) {
                return failed(kDecoding, status);
            }
            if (Error error = append(piece)) {
                return error;
            }
        }
        return {};
    }
    Error inflate(const Run& run) {
        const auto stored = room(stored_, run.stored);
        const auto plain = room(plain_, run.size);
        if (const int status = readExactly(image_, run.offset, stored); status != 0) {
            return failed(kDecoding, status);
        }
        return inflater_ && ::libdeflate_zlib_decompress(inflater_.get(), stored.data(),
                                                         stored.size(), plain.data(), plain.size(),
                                                         nullptr) == LIBDEFLATE_SUCCESS
                   ? append(plain)
                   : failed(kDecoding, kDamaged);
    }

    int image_;
    int file_;
    std::uint32_t checksum_ = 0;
    std::string stored_;
    std::string plain_;
    std::unique_ptr<libdeflate_decompressor, Releaser> inflater_{::libdeflate_alloc_decompressor()};
};

} // namespace

std::optional<std::vector<StoredPartition>> partitionsIn(int image) {
    constexpr std::uint64_t kLongestList = std::uint64_t{64} << 20U;
    const auto trailer = trailerOf(image);
    if (!trailer || trailer->list.size > kLongestList) {
        return std::nullopt;
    }
    std::string text(trailer->list.size, '\0');
    if (readExactly(image, trailer->list.offset, text) != 0) {
        return std::nullopt;
    }
    const auto list = PropertyList::propertyListWithData(text);
    const Value* fork =
        list && list->root.is(Value::Kind::dictionary) ? list->root.find("resource-fork") : nullptr;
    const Value* tables =
        fork != nullptr && fork->is(Value::Kind::dictionary) ? fork->find("blkx") : nullptr;
    if (tables == nullptr || !tables->is(Value::Kind::array)) {
        return std::nullopt;
    }
    std::vector<StoredPartition> partitions;
    for (const Value& each : tables->asArray()) {
        const Value* table = each.is(Value::Kind::dictionary) ? each.find("Data") : nullptr;
        auto partition = table != nullptr && table->is(Value::Kind::data)
                             ? partitionIn(table->asData(), trailer->fork)
                             : std::nullopt;
        if (!partition) {
            return std::nullopt;
        }
        partitions.push_back(std::move(*partition));
    }
    return partitions;
}

Error decode(int image, const StoredPartition& partition, int file) {
    Decoder decoder(image, file);
    for (const Run& run : partition.runs) {
        if (Error error = decoder.write(run)) {
            return error;
        }
    }
    return partition.checksum && *partition.checksum != decoder.checksum()
               ? failed(kDecoding, "the image is damaged: its checksum is another")
               : Error();
}

} // namespace qv::imager
