#pragma once

#include "platform/foundation/digest/SHA256.h"
#include "platform/foundation/os/Descriptor.h"
#include "platform/foundation/os/FileKey.h"
#include "platform/foundation/values/Error.h"

#include <tl/expected.hpp>

#include <cstdint>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <utility>

namespace qv {

/// What was read of a file.
struct FileContentMark {
    SHA256Digest digest{};
    bool settled = false; ///< see ExecutableFile::contentMark
};

/// A program's file, held from the moment it was found: its path is not used a second time. Errors
/// are of kAXErrorDomain: IllegalArgument when it is none that could be executed, else Failure.
class ExecutableFile {
public:
    /// Follows links. Only a regular file with an execute bit is ever opened: opening a device or a
    /// FIFO may do something.
    [[nodiscard]] static tl::expected<ExecutableFile, Error> at(const std::string& path);
    /// One that is held already, opened with O_PATH.
    [[nodiscard]] static tl::expected<ExecutableFile, Error> held(Descriptor file,
                                                                  std::string path);

    [[nodiscard]] const std::string& path() const noexcept { return path_; } ///< without links
    /// `generation` is 0: only who may read a file is told.
    [[nodiscard]] const FileKey& key() const noexcept { return key_; }
    [[nodiscard]] bool isSameFile(dev_t device, ino_t inode) const noexcept {
        return key_.device == device && key_.inode == inode;
    }

    /// The digest of all bytes, at most 1 GiB. A file that changes meanwhile is a Failure.
    [[nodiscard]] tl::expected<SHA256Digest, Error> digest() const;
    /// The same, and whether from now on the key alone tells that the bytes are these. It does for
    /// a file that only root can write, that nobody holds open for writing (a mapping of it can be
    /// written without a trace in its times), and whose last change lies more than two seconds
    /// before `now` (nanoseconds since 1970): a change within one tick of a file system's clock
    /// leaves none either.
    [[nodiscard]] tl::expected<FileContentMark, Error> contentMark(std::int64_t now) const;

private:
    ExecutableFile(Descriptor file, std::string path, FileKey key, mode_t mode)
        : file_(std::move(file)), path_(std::move(path)), key_(key), mode_(mode) {}
    [[nodiscard]] tl::expected<Descriptor, Error> openToRead() const;
    [[nodiscard]] tl::expected<SHA256Digest, Error> digestOf(int readable) const;
    [[nodiscard]] Error failure(std::string_view cause) const;

    Descriptor file_; // O_PATH
    std::string path_;
    FileKey key_;
    mode_t mode_ = 0;
};

} // namespace qv
