#pragma once

#include "platform/foundation/os/Descriptor.h"

#include <tl/expected.hpp>

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <sys/stat.h>
#include <sys/types.h>

namespace qv {

/// A file and the mount that it was found on.
struct FileOnMount {
    struct stat status{}; ///< device, inode, mode, links, owner, group and size
    std::uint64_t mount = 0;
};

/// Every system call that a look-up of a process makes, and nothing else, so that a test can fail
/// each of them. Values, or the errno. Descriptors are close-on-exec. Interrupted calls are
/// repeated.
class ProcessFileSystem {
public:
    template <typename T> using Result = tl::expected<T, int>;

    ProcessFileSystem() = default;
    ProcessFileSystem(const ProcessFileSystem&) = delete;
    ProcessFileSystem& operator=(const ProcessFileSystem&) = delete;
    ProcessFileSystem(ProcessFileSystem&&) = delete;
    ProcessFileSystem& operator=(ProcessFileSystem&&) = delete;
    virtual ~ProcessFileSystem() = default;

    /// A pidfd of a process; its thread group, not one of its threads.
    virtual Result<Descriptor> openProcess(pid_t pid) = 0;
    /// `path` is relative to `directory` (AT_FDCWD for an absolute one); `flags` are those of
    /// open(2).
    virtual Result<Descriptor> open(int directory, const std::string& path, int flags) = 0;
    virtual Result<struct stat> status(int fd) = 0;
    /// Follows links.
    virtual Result<struct stat> statusAt(int directory, const std::string& path) = 0;
    /// The file that a link leads to; an empty path means the directory's own descriptor. The file
    /// system is not asked: of one that is not local the status may be old.
    virtual Result<FileOnMount> fileAt(int directory, const std::string& path) = 0;
    /// The magic number of the file system that a descriptor stands on.
    virtual Result<std::uint64_t> fileSystemMagic(int fd) = 0;
    /// Bytes read at `offset`; 0 at the end.
    virtual Result<std::size_t> read(int fd, std::uint64_t offset, std::span<char> buffer) = 0;
    /// Whether the process of a pidfd has ended (a zombie has).
    virtual Result<bool> hasEnded(int pidfd) = 0;
};

/// The running kernel.
class KernelProcessFileSystem final : public ProcessFileSystem {
public:
    Result<Descriptor> openProcess(pid_t pid) override;
    Result<Descriptor> open(int directory, const std::string& path, int flags) override;
    Result<struct stat> status(int fd) override;
    Result<struct stat> statusAt(int directory, const std::string& path) override;
    Result<FileOnMount> fileAt(int directory, const std::string& path) override;
    Result<std::uint64_t> fileSystemMagic(int fd) override;
    Result<std::size_t> read(int fd, std::uint64_t offset, std::span<char> buffer) override;
    Result<bool> hasEnded(int pidfd) override;
};

} // namespace qv
