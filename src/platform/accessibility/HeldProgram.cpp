#include "platform/accessibility/HeldProgram.h"

#include "platform/accessibility/AccessibilityService.h"
#include "platform/foundation/files/item/HeldItem.h"
#include "platform/foundation/os/FileBytes.h"
#include "platform/foundation/os/FileKey.h"
#include "platform/foundation/os/RegularFile.h"

#include <fmt/core.h>

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <span>
#include <sys/stat.h>
#include <utility>
#include <vector>

namespace qv {

namespace {

tl::unexpected<Error> fault(AXError code, std::string_view place, std::string_view cause) {
    return tl::unexpected(accessibilityError(code, place, cause));
}

// An errno about the way to a file or a process.
AXError codeOf(int errorNumber) {
    switch (errorNumber) {
    case ENOENT:
    case ENOTDIR:
    case ELOOP:
    case ENAMETOOLONG:
    case ESRCH:
        return kAXErrorIllegalArgument;
    default:
        return kAXErrorFailure;
    }
}

tl::expected<HeldProgram, Error> programIn(Descriptor file, std::string_view place) {
    struct stat info{};
    std::string path = pathOfHeldItem(file.get());
    if (path.empty() || ::fstat(file.get(), &info) != 0) {
        return fault(kAXErrorFailure, place, "its path without links cannot be found out");
    }
    if (!isProgramFile(info)) {
        return fault(kAXErrorIllegalArgument, place, "is not a file that may be executed");
    }
    return HeldProgram{std::move(file), std::move(path)};
}

bool isInOurUserNamespace(int process) {
    struct stat theirs{};
    struct stat ours{};
    return ::fstatat(process, "ns/user", &theirs, 0) == 0 &&
           ::stat("/proc/self/ns/user", &ours) == 0 && theirs.st_dev == ours.st_dev &&
           theirs.st_ino == ours.st_ino;
}

} // namespace

tl::expected<HeldProgram, Error> HeldProgram::at(const std::string& path) {
    if (path.empty() || path.find('\0') != std::string::npos) {
        return fault(kAXErrorIllegalArgument, path, "names no file of a program");
    }
    tl::expected<Descriptor, int> file = holdItem(path, LastLink::follow);
    if (!file) {
        return fault(codeOf(file.error()), path, errnoText(file.error()));
    }
    return programIn(*std::move(file), path);
}

tl::expected<HeldProgram, Error> HeldProgram::executedBy(pid_t process) {
    const std::string name = fmt::format("process {}", process);
    // The folder never becomes that of another process with this number.
    const Descriptor folder(
        ::open(fmt::format("/proc/{}", process).c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!folder) {
        return fault(codeOf(errno), name,
                     errno == ENOENT ? "there is no such process" : errnoText(errno));
    }
    Descriptor file(::openat(folder.get(), "exe", O_PATH | O_CLOEXEC));
    if (!file) {
        const bool isNone = errno == ENOENT || errno == ESRCH;
        return fault(codeOf(errno), name, isNone ? "executes no file" : errnoText(errno));
    }
    if (!isInOurUserNamespace(folder.get())) {
        return fault(kAXErrorIllegalArgument, name,
                     "is in another user namespace, where a process can forge what it executes");
    }
    return programIn(std::move(file), name);
}

tl::expected<SHA256Digest, Error> HeldProgram::digest() const {
    constexpr off_t kMostBytes = off_t{1} << 30U;
    constexpr off_t kPiece = off_t{1} << 18U;
    const Descriptor readable = openRegularFile(file.get());
    const auto key = readable ? FileKey::of(readable.get()) : tl::unexpected(errno);
    if (!key) {
        return fault(kAXErrorFailure, path,
                     fmt::format("cannot be read: {}", errnoText(key.error())));
    }
    if (key->size > kMostBytes) {
        return fault(kAXErrorFailure, path, "is larger than 1 GiB");
    }
    std::vector<char> piece(static_cast<std::size_t>(std::min(key->size, kPiece)));
    SHA256 running;
    for (off_t at = 0; at < key->size;) {
        const auto part =
            std::span(piece).first(static_cast<std::size_t>(std::min(key->size - at, kPiece)));
        if (const int error = readExactly(readable.get(), static_cast<std::uint64_t>(at), part)) {
            return fault(kAXErrorFailure, path, errnoText(error));
        }
        running.update({part.data(), part.size()});
        at += static_cast<off_t>(part.size());
    }
    if (FileKey::of(readable.get()) != key) {
        return fault(kAXErrorFailure, path, "changed while it was read");
    }
    return running.finish();
}

} // namespace qv
