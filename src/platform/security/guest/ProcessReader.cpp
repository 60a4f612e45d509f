#include "platform/security/guest/ProcessReader.h"

#include "platform/security/CodeSigningStatus.h"
#include "platform/security/guest/GuestError.h"

#include <fmt/format.h>

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
    return openAt(directory, path, O_RDONLY).and_then([&](const UniqueFd& file) {
        return text(file.get(), path);
    });
}

tl::expected<DescriptorInfo, Error> ProcessReader::descriptorInfo(int fd) {
    return textAt(AT_FDCWD, fmt::format("/proc/self/fdinfo/{}", fd)).and_then(parseDescriptorInfo);
}

tl::expected<UniqueFd, Error> ProcessReader::openAt(int directory, const std::string& path,
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
    auto fd = openAt(directory, path, O_PATH);
    if (!fd) {
        return tl::unexpected(std::move(fd.error()));
    }
    const auto info = descriptorInfo(fd->get());
    if (!info) {
        return tl::unexpected(info.error());
    }
    const std::optional<std::uint64_t> mount = info->mount;
    if (!mount) {
        return tl::unexpected(codeSigningError(codesign_status::kInternalError,
                                               "the kernel does not tell the mount of a file"));
    }
    return fileSystemOfMount(*mount, directory)
        .map([&, mount = *mount](MountedFileSystem fileSystem) {
            return LocatedFile{
                .fd = std::move(*fd), .mount = mount, .fileSystem = std::move(fileSystem)};
        });
}

tl::expected<MountedFileSystem, Error> ProcessReader::fileSystemOf(int fd) {
    return openAt(AT_FDCWD, "/proc/self", O_PATH | O_DIRECTORY).and_then([&](const UniqueFd& self) {
        return locate(self.get(), fmt::format("fd/{}", fd)).map([](const LocatedFile& located) {
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
        return qv::fileSystemOfMount(mounts, mount);
    });
    if (!found) {
        return tl::unexpected(found.error());
    }
    return fileSystems_.emplace(mount, found->value_or(MountedFileSystem())).first->second;
}

} // namespace qv
