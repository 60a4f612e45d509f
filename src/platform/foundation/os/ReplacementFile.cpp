#include "platform/foundation/os/ReplacementFile.h"

#include "platform/foundation/os/FileBytes.h"
#include "platform/foundation/os/Folder.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <span>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace qv {

namespace {

constexpr std::size_t kPiece = std::size_t{1} << 20U;

} // namespace

tl::expected<ReplacementFile, int> ReplacementFile::create(const std::string& path) {
    const std::size_t name = path.rfind('/') + 1; // npos + 1 is 0
    const std::string folder = name == 0 ? "." : path.substr(0, name);
    Descriptor opened(::open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    return opened ? create(std::move(opened), path.substr(name)) : tl::unexpected(errno);
}

tl::expected<ReplacementFile, int> ReplacementFile::create(Descriptor folder, std::string name,
                                                           std::string temporary) {
    constexpr mode_t kOwnerOnly = 0600;
    Descriptor file(::openat(folder.get(), temporary.c_str(),
                             O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, kOwnerOnly));
    if (!file) {
        return tl::unexpected(errno);
    }
    return ReplacementFile(std::move(folder), std::move(name), std::move(temporary),
                           std::move(file));
}

ReplacementFile::~ReplacementFile() {
    if (file_) {
        static_cast<void>(
            ::unlinkat(folder_.get(), temporaryName_.c_str(), 0)); // nobody is left to be told
    }
}

int ReplacementFile::copyFrom(int source, std::uint64_t length,
                              const std::function<void(std::string_view)>& eachPart) {
    std::vector<char> piece(static_cast<std::size_t>(std::min<std::uint64_t>(length, kPiece)));
    for (std::uint64_t at = 0; at < length;) {
        const std::span<char> part = std::span(piece).first(
            static_cast<std::size_t>(std::min<std::uint64_t>(piece.size(), length - at)));
        if (const int error = readExactly(source, at, part); error != 0) {
            return error;
        }
        const std::string_view bytes(part.data(), part.size());
        if (const int error = append(bytes); error != 0) {
            return error;
        }
        if (eachPart) {
            eachPart(bytes);
        }
        at += part.size();
    }
    return 0;
}

int ReplacementFile::append(std::string_view bytes) { return writeAll(file_.get(), bytes); }

int ReplacementFile::give(uid_t user, gid_t group, mode_t mode) {
    // The mode comes last: changing the owner clears the bits that change identity.
    return ::fchown(file_.get(), user, group) == 0 && ::fchmod(file_.get(), mode) == 0 ? 0 : errno;
}

int ReplacementFile::replace() { return replaceIn(folder_.get()); }

int ReplacementFile::replaceIn(int folder) {
    if (::fsync(file_.get()) != 0 ||
        ::renameat(folder_.get(), temporaryName_.c_str(), folder, name_.c_str()) != 0) {
        return errno;
    }
    file_.reset();
    return syncFolder(folder);
}

} // namespace qv
