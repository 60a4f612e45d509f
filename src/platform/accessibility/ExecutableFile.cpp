#include "platform/accessibility/ExecutableFile.h"

#include "platform/accessibility/AccessibilityError.h"
#include "platform/foundation/files/item/HeldItem.h"
#include "platform/foundation/os/FileBytes.h"

#include <fmt/core.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <span>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace qv {

namespace {

constexpr off_t kMostBytes = off_t{1} << 30U;

// The kernel's name for a descriptor: leads to the very file, whatever its path leads to by now.
std::string nameOf(const Descriptor& fd) { return fmt::format("/proc/self/fd/{}", fd.get()); }

// An errno about the way to a file.
AXError codeOf(int errorNumber) {
    switch (errorNumber) {
    case ENOENT:
    case ENOTDIR:
    case ELOOP:
    case ENAMETOOLONG:
        return kAXErrorIllegalArgument;
    default:
        return kAXErrorFailure;
    }
}

// Whether nobody holds a file open for writing: the kernel gives a read lease of no other. It is
// given back at once; who opens the file in between must not end us by the signal for that.
bool isHeldByNoWriter(int fd) {
    const bool leased = ::fcntl(fd, F_SETSIG, SIGURG) == 0 && ::fcntl(fd, F_SETLEASE, F_RDLCK) == 0;
    return leased && ::fcntl(fd, F_SETLEASE, F_UNLCK) == 0;
}

} // namespace

tl::expected<ExecutableFile, Error> ExecutableFile::at(const std::string& path) {
    if (path.empty() || path.find('\0') != std::string::npos) {
        return tl::unexpected(
            accessibilityError(kAXErrorIllegalArgument, path, "names no file of a program"));
    }
    tl::expected<Descriptor, int> file = holdItem(path, LastLink::follow);
    if (!file) {
        return tl::unexpected(
            accessibilityError(codeOf(file.error()), path, errnoText(file.error())));
    }
    std::string real = pathOfHeldItem(file->get());
    if (real.empty()) {
        return tl::unexpected(accessibilityError(kAXErrorFailure, path,
                                                 "its path without links cannot be found out"));
    }
    auto found = held(*std::move(file), std::move(real));
    if (!found) {
        return found;
    }
    struct stat info{};
    if (::lstat(found->path_.c_str(), &info) != 0 || !found->isSameFile(info.st_dev, info.st_ino)) {
        return tl::unexpected(found->failure("was moved or removed at this moment"));
    }
    return found;
}

tl::expected<ExecutableFile, Error> ExecutableFile::held(Descriptor file, std::string path) {
    struct stat info{};
    auto key = FileKey::of(file.get());
    if (!key || ::fstat(file.get(), &info) != 0) {
        return tl::unexpected(
            accessibilityError(kAXErrorFailure, path, errnoText(key ? errno : key.error())));
    }
    if (!S_ISREG(info.st_mode)) {
        return tl::unexpected(
            accessibilityError(kAXErrorIllegalArgument, path, "is no regular file"));
    }
    constexpr mode_t kAnybody = S_IXUSR | S_IXGRP | S_IXOTH;
    if ((info.st_mode & kAnybody) == 0) {
        return tl::unexpected(
            accessibilityError(kAXErrorIllegalArgument, path, "may be executed by nobody"));
    }
    key->generation = 0;
    return ExecutableFile(std::move(file), std::move(path), *key, info.st_mode);
}

Error ExecutableFile::failure(std::string_view cause) const {
    return accessibilityError(kAXErrorFailure, path_, cause);
}

tl::expected<Descriptor, Error> ExecutableFile::openToRead() const {
    Descriptor readable(::open(nameOf(file_).c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    if (!readable) {
        return tl::unexpected(failure(fmt::format("cannot be read: {}", errnoText(errno))));
    }
    return readable;
}

tl::expected<SHA256Digest, Error> ExecutableFile::digestOf(int readable) const {
    if (key_.size > kMostBytes) {
        return tl::unexpected(failure("is larger than 1 GiB"));
    }
    constexpr off_t kPiece = off_t{1} << 18U;
    std::vector<char> piece(static_cast<std::size_t>(std::min(key_.size, kPiece)));
    SHA256 running;
    for (off_t at = 0; at < key_.size;) {
        const auto part =
            std::span(piece).first(static_cast<std::size_t>(std::min(key_.size - at, kPiece)));
        if (const int error = readExactly(readable, static_cast<std::uint64_t>(at), part);
            error != 0) {
            return tl::unexpected(
                failure(error == ENODATA ? "became shorter while it was read" : errnoText(error)));
        }
        running.update({part.data(), part.size()});
        at += static_cast<off_t>(part.size());
    }
    auto after = FileKey::of(readable);
    if (after) {
        after->generation = 0;
    }
    if (!after || *after != key_) {
        return tl::unexpected(failure("changed while it was read"));
    }
    return running.finish();
}

tl::expected<SHA256Digest, Error> ExecutableFile::digest() const {
    return openToRead().and_then(
        [&](const Descriptor& readable) { return digestOf(readable.get()); });
}

tl::expected<FileContentMark, Error> ExecutableFile::contentMark(std::int64_t now) const {
    const auto readable = openToRead();
    if (!readable) {
        return tl::unexpected(readable.error());
    }
    constexpr std::int64_t kCoarsestTick = 2'000'000'000; // of the file systems in use: FAT
    const bool rootsOnly = key_.owner == 0 && (mode_ & (S_IWGRP | S_IWOTH)) == 0;
    // A writer that ends after this was asked may have written after its part was read: first ask.
    const bool settled =
        rootsOnly && key_.changed < now - kCoarsestTick && isHeldByNoWriter(readable->get());
    return digestOf(readable->get()).map([&](const SHA256Digest& digest) {
        return FileContentMark{.digest = digest, .settled = settled};
    });
}

} // namespace qv
