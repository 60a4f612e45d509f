#include "platform/security/signature/ReplacementFile.h"

#include "platform/security/signature/FileBytes.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <span>
#include <unistd.h>
#include <vector>

namespace qv {

namespace {

constexpr std::size_t kPiece = std::size_t{1} << 20U;

// Makes an entry of a folder durable.
int syncFolderOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    const std::string folder = slash == std::string::npos ? "." : path.substr(0, slash + 1);
    const UniqueFd opened(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    return opened && ::fsync(opened.get()) == 0 ? 0 : errno;
}

} // namespace

tl::expected<ReplacementFile, int> ReplacementFile::create(const std::string& path) {
    const std::size_t name = path.rfind('/') + 1; // npos + 1 is 0
    std::string temporary = path.substr(0, name) + "." + path.substr(name) + ".XXXXXX";
    UniqueFd file(::mkostemp(temporary.data(), O_CLOEXEC));
    if (!file) {
        return tl::unexpected(errno);
    }
    return ReplacementFile(path, std::move(temporary), std::move(file));
}

ReplacementFile::~ReplacementFile() {
    if (file_) {
        static_cast<void>(::unlink(temporaryPath_.c_str())); // nobody is left to be told
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
        eachPart(bytes);
        at += part.size();
    }
    return 0;
}

int ReplacementFile::append(std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t written = ::write(file_.get(), bytes.data(), bytes.size());
        if (written < 0 && errno != EINTR) {
            return errno;
        }
        bytes.remove_prefix(written < 0 ? 0 : static_cast<std::size_t>(written));
    }
    return 0;
}

int ReplacementFile::replace(const struct stat& like) {
    // The mode comes last: changing the owner clears the bits that change identity.
    if (::fchown(file_.get(), like.st_uid, like.st_gid) != 0 ||
        ::fchmod(file_.get(), like.st_mode & 07777U) != 0 || ::fsync(file_.get()) != 0 ||
        ::rename(temporaryPath_.c_str(), path_.c_str()) != 0) {
        return errno;
    }
    file_.reset();
    return syncFolderOf(path_);
}

} // namespace qv
