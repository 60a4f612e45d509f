#include "platform/security/guest/ProcessReader.h"

#include "platform/security/requirement/CodeSigningError.h"
#include "platform/security/requirement/CodeSigningStatus.h"

#include <fmt/core.h>

#include <array>
#include <fcntl.h>
#include <utility>

namespace qv {

Error ProcessReader::overdue() const {
    if (std::chrono::steady_clock::now() < deadline_) {
        return {};
    }
    return codeSigningError(codesign_status::kCancelled, "the look-up took too long");
}

tl::expected<std::string, Error> ProcessReader::text(int fd, std::string_view name) {
    std::string text;
    std::array<char, 65536> buffer; // NOLINT(cppcoreguidelines-pro-type-member-init): filled below
    while (true) {
        if (Error late = overdue()) {
            return tl::unexpected(std::move(late));
        }
        const auto bytes = system_.read(fd, text.size(), buffer);
        if (!bytes) {
            return tl::unexpected(codeSigningSystemError(name, bytes.error()));
        }
        if (*bytes == 0) {
            return text;
        }
        text.append(buffer.data(), *bytes);
        if (text.size() > kLongestText) {
            return tl::unexpected(
                codeSigningError(codesign_status::kSignatureNotVerifiable,
                                 fmt::format("{} is longer than {} bytes", name, kLongestText)));
        }
    }
}

tl::expected<std::string, Error> ProcessReader::textAt(int directory, const std::string& path) {
    return openAt(directory, path, O_RDONLY).and_then([&](const Descriptor& file) {
        return text(file.get(), path);
    });
}

tl::expected<std::string, Error> ProcessReader::smallTextAt(int directory,
                                                            const std::string& path) {
    constexpr std::size_t kMost = 16384;
    const auto file = openAt(directory, path, O_RDONLY);
    if (!file) {
        return tl::unexpected(file.error());
    }
    std::string text(kMost, '\0');
    const auto bytes = system_.read(file->get(), 0, text);
    if (!bytes) {
        return tl::unexpected(codeSigningSystemError(path, bytes.error()));
    }
    if (*bytes == kMost) {
        return tl::unexpected(codeSigningError(codesign_status::kSignatureNotVerifiable,
                                               fmt::format("{} is too long", path)));
    }
    text.resize(*bytes);
    return text;
}

tl::expected<Descriptor, Error> ProcessReader::openAt(int directory, const std::string& path,
                                                      int flags) {
    return system_.open(directory, path, flags).map_error([&](int errorNumber) {
        return codeSigningSystemError(path, errorNumber);
    });
}

tl::expected<struct stat, Error> ProcessReader::status(int fd, std::string_view name) {
    return system_.status(fd).map_error(
        [&](int errorNumber) { return codeSigningSystemError(name, errorNumber); });
}

tl::expected<struct stat, Error> ProcessReader::statusAt(int directory, const std::string& path) {
    return system_.statusAt(directory, path).map_error([&](int errorNumber) {
        return codeSigningSystemError(path, errorNumber);
    });
}

tl::expected<LocatedFile, Error> ProcessReader::locate(int directory, const std::string& path) {
    return located(system_.fileAt(directory, path), directory, path);
}

tl::expected<LocatedFile, Error> ProcessReader::locateOpen(int file, int directory) {
    return located(system_.fileAt(file, ""), directory, "an open file");
}

tl::expected<LocatedFile, Error>
ProcessReader::located(const ProcessFileSystem::Result<FileOnMount>& file, int directory,
                       std::string_view name) {
    if (!file) {
        return tl::unexpected(codeSigningSystemError(name, file.error()));
    }
    return fileSystemOfMount(file->mount, directory).map([&](MountedFileSystem fileSystem) {
        return LocatedFile{.file = *file, .fileSystem = std::move(fileSystem)};
    });
}

tl::expected<MountedFileSystem, Error> ProcessReader::fileSystemOf(int fd) {
    return openAt(AT_FDCWD, "/proc/self", O_PATH | O_DIRECTORY)
        .and_then([&](const Descriptor& self) {
            return locateOpen(fd, self.get()).map([](const LocatedFile& located) {
                return located.fileSystem;
            });
        });
}

tl::expected<MountedFileSystem, Error> ProcessReader::fileSystemOfMount(std::uint64_t mount,
                                                                        int directory) {
    if (const auto known = fileSystems_.find(mount); known != fileSystems_.end()) {
        return known->second;
    }
    // The process's own list: it may live among other mounts than ours. Numbers of mounts are the
    // kernel's, whatever list they stand in.
    const auto found = textAt(directory, "mountinfo").and_then([&](const std::string& mounts) {
        return understood(qv::fileSystemOfMount(mounts, mount));
    });
    if (!found) {
        return tl::unexpected(found.error());
    }
    return fileSystems_.emplace(mount, found->value_or(MountedFileSystem())).first->second;
}

} // namespace qv
