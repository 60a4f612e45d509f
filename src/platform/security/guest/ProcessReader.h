#pragma once

#include "platform/foundation/os/Descriptor.h"
#include "platform/foundation/os/ProcessText.h"
#include "platform/security/guest/ProcessFileSystem.h"
#include "platform/security/requirement/CodeSigningError.h"
#include "platform/security/requirement/CodeSigningStatus.h"

#include <tl/expected.hpp>

#include <chrono>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <utility>

namespace qv {

/// The file that a link of a process's folder leads to, found without asking its file system
/// anything.
struct LocatedFile {
    FileOnMount file;
    MountedFileSystem fileSystem; ///< without a type when the process's mounts do not list it
};

/// A reading of a process file, its fault as an error of the code-signing services.
template <typename T> tl::expected<T, Error> understood(tl::expected<T, std::string> read) {
    return std::move(read).map_error([](const std::string& fault) {
        return codeSigningError(codesign_status::kInternalError, fault);
    });
}

/// Reads process files within a deadline. Errors carry a status (codeSigningError); a system call
/// that failed is 100000 + errno and names the file.
class ProcessReader {
public:
    static constexpr std::size_t kLongestText = std::size_t{16} << 20U;

    ProcessReader(ProcessFileSystem& system, std::chrono::steady_clock::time_point deadline)
        : system_(system), deadline_(deadline) {}

    [[nodiscard]] ProcessFileSystem& system() noexcept { return system_; }

    /// Returns kCancelled once the deadline has passed.
    [[nodiscard]] Error overdue() const;

    /// A whole process file of at most kLongestText bytes; `name` for the error.
    tl::expected<std::string, Error> text(int fd, std::string_view name);
    tl::expected<std::string, Error> textAt(int directory, const std::string& path);
    /// The same for a small file that the kernel shows at once.
    tl::expected<std::string, Error> smallTextAt(int directory, const std::string& path);

    tl::expected<Descriptor, Error> openAt(int directory, const std::string& path, int flags);
    tl::expected<struct stat, Error> status(int fd, std::string_view name);
    tl::expected<struct stat, Error> statusAt(int directory, const std::string& path);

    /// Follows a link of a process's folder (`exe`, `map_files/...`) to the file, whatever the
    /// link's text says, and finds its file system in the process's list of mounts.
    tl::expected<LocatedFile, Error> locate(int directory, const std::string& path);
    /// The same for a file that is open already, with the folder of the process that has its mount.
    tl::expected<LocatedFile, Error> locateOpen(int file, int directory);

    /// The file system of a descriptor of our own.
    tl::expected<MountedFileSystem, Error> fileSystemOf(int fd);

private:
    tl::expected<LocatedFile, Error> located(const ProcessFileSystem::Result<FileOnMount>& file,
                                             int directory, std::string_view name);
    tl::expected<MountedFileSystem, Error> fileSystemOfMount(std::uint64_t mount, int directory);

    ProcessFileSystem& system_;
    std::chrono::steady_clock::time_point deadline_;
    std::map<std::uint64_t, MountedFileSystem>
        fileSystems_; // by mount, each of which an open file holds
};

} // namespace qv
