#include "platform/foundation/files/manager/FileContent.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <fcntl.h>
#include <linux/fs.h>
#include <memory>
#include <span>
#include <sys/ioctl.h>
#include <sys/sendfile.h>
#include <unistd.h>

namespace qv {

namespace {

constexpr std::size_t kSmall = std::size_t{64} * 1024;
constexpr std::size_t kBuffer = std::size_t{1} * 1024 * 1024;
constexpr std::size_t kMostAtOnce = std::size_t{1} << 30U;
constexpr off_t kBlock = 512; // the unit of st_blocks

using Outcome = std::optional<ContentFailure>;

Outcome readFailure() { return ContentFailure{errno, FileAccess::read}; }
Outcome writeFailure() { return ContentFailure{errno, FileAccess::write}; }

Outcome writeAll(int out, std::span<const char> bytes, off_t at) {
    while (!bytes.empty()) {
        const ssize_t count = ::pwrite(out, bytes.data(), bytes.size(), at);
        if (count < 0 && errno != EINTR) {
            return writeFailure();
        }
        if (count > 0) {
            bytes = bytes.subspan(static_cast<std::size_t>(count));
            at += count;
        }
    }
    return std::nullopt;
}

// Copies from `begin` to `end` or the end of the file, whichever comes first.
Outcome copyThrough(std::span<char> buffer, int in, int out, off_t begin, off_t end) {
    while (begin < end) {
        const std::size_t wanted = std::min(buffer.size(), static_cast<std::size_t>(end - begin));
        const ssize_t count = ::pread(in, buffer.data(), wanted, begin);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count < 0) {
            return readFailure();
        }
        if (count == 0) {
            return std::nullopt;
        }
        const auto bytes = static_cast<std::size_t>(count);
        if (Outcome failure = writeAll(out, buffer.first(bytes), begin)) {
            return failure;
        }
        begin += count;
    }
    return std::nullopt;
}

bool isWriteError(int errorNumber) {
    return errorNumber == ENOSPC || errorNumber == EDQUOT || errorNumber == EFBIG ||
           errorNumber == EROFS;
}

// Copies within the kernel: it copies within a file system by one call, and out of one by the
// other, a third faster than through a buffer.
ssize_t passOn(int in, int out, off_t& at, std::size_t wanted) {
    off_t destination = at;
    const ssize_t count = ::copy_file_range(in, &at, out, &destination, wanted, 0);
    return count < 0 && errno == EXDEV && ::lseek(out, at, SEEK_SET) == at
               ? ::sendfile(out, in, &at, wanted)
               : count;
}

Outcome copyRange(int in, int out, off_t begin, off_t end) {
    off_t source = begin;
    while (source < end) {
        const std::size_t wanted = std::min(kMostAtOnce, static_cast<std::size_t>(end - source));
        const ssize_t count = passOn(in, out, source, wanted);
        if (count > 0 || (count < 0 && errno == EINTR)) {
            continue;
        }
        if (count < 0 && isWriteError(errno)) {
            return writeFailure();
        }
        // The kernel does not copy between these two files, or the file is shorter than it says:
        // reading tells.
        using Buffer = std::array<char, kBuffer>;
        const auto buffer = std::make_unique_for_overwrite<Buffer>();
        return copyThrough(*buffer, in, out, source, end);
    }
    return std::nullopt;
}

// Knowing the blocks of a large file beforehand makes writing it a fifth cheaper, and shows at once
// when there is no room for it. The size grows with the bytes that are written.
Outcome reserve(int out, off_t size) {
    constexpr off_t kWorthwhile = 1 << 20;
    const bool failed = size >= kWorthwhile && ::fallocate(out, FALLOC_FL_KEEP_SIZE, 0, size) != 0;
    return failed && isWriteError(errno) ? writeFailure() : std::nullopt;
}

// A file without a size is empty, or one of those that the kernel makes up as they are read. One
// that has a size by then has only begun to grow.
Outcome copyUnsized(std::span<char> buffer, int in, int out) {
    constexpr off_t kMost = 64 << 20;
    struct stat info{};
    const ssize_t count = ::pread(in, buffer.data(), 1, 0);
    if (count < 0 || ::fstat(in, &info) != 0) {
        return readFailure();
    }
    if (count == 0 || info.st_size > 0) {
        return std::nullopt;
    }
    if (Outcome failure = copyThrough(buffer, in, out, 0, kMost)) {
        return failure;
    }
    const bool isAll = ::pread(in, buffer.data(), 1, kMost) == 0;
    return isAll ? Outcome() : ContentFailure{EFBIG, FileAccess::read};
}

// The parts between the holes.
Outcome copySparse(int in, int out, off_t size) {
    off_t at = 0;
    while (at < size) {
        const off_t data = ::lseek(in, at, SEEK_DATA);
        if (data < 0 && errno == ENXIO) {
            break; // a hole up to the end
        }
        if (data < 0) {
            return copyRange(in, out, at, size);
        }
        const off_t hole = ::lseek(in, data, SEEK_HOLE);
        const off_t end = hole < 0 ? size : std::min(hole, size);
        if (Outcome failure = copyRange(in, out, data, end)) {
            return failure;
        }
        at = end;
    }
    return ::ftruncate(out, size) == 0 ? std::nullopt : writeFailure();
}

} // namespace

std::optional<ContentFailure> ContentCopier::copy(int in, int out, const struct stat& info) {
    if (info.st_size > 0 && sharesBlocks_.load(std::memory_order_relaxed)) {
        if (::ioctl(out, FICLONE, in) == 0) {
            return std::nullopt;
        }
        if (isWriteError(errno)) {
            return writeFailure();
        }
        sharesBlocks_ = false;
    }
    if (info.st_size > 0 && info.st_blocks < info.st_size / kBlock) {
        return copySparse(in, out, info.st_size);
    }
    if (info.st_size > static_cast<off_t>(kSmall)) {
        static_cast<void>(::posix_fadvise(in, 0, 0, POSIX_FADV_SEQUENTIAL));
        if (Outcome failure = reserve(out, info.st_size)) {
            return failure;
        }
        return copyRange(in, out, 0, info.st_size);
    }
    std::array<char, kSmall> buffer; // NOLINT(*-member-init): it is filled by reading
    return info.st_size > 0 ? copyThrough(buffer, in, out, 0, info.st_size)
                            : copyUnsized(buffer, in, out);
}

} // namespace qv
