#include "platform/applescript/world/context/FilePaths.h"

#include "platform/applescript/world/context/Parameters.h"
#include "platform/foundation/files/item/Volume.h"
#include "platform/foundation/os/Descriptor.h"
#include "platform/foundation/values/URL.h"

#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <fcntl.h>
#include <filesystem>
#include <system_error>

namespace qv::applescript::world {

namespace {

struct VolumesFolder {
    std::string_view path;
    bool hasUsers; ///< volumes are in folders of their users
};

constexpr std::array kVolumesFolders = std::to_array<VolumesFolder>({
    {"/Volumes", false},
    {"/mnt", false},
    {"/media", true},
});

bool isMountedAt(const std::string& path) {
    const Descriptor folder(::open(path.c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    return folder && isMountPoint(folder.get());
}

std::vector<std::string> foldersIn(const std::string& folder) {
    std::vector<std::string> found;
    std::error_code failure;
    for (auto at = std::filesystem::directory_iterator(folder, failure);
         !failure && at != std::filesystem::directory_iterator(); at.increment(failure)) {
        found.push_back(at->path().native());
    }
    std::ranges::sort(found);
    return found;
}

// The mount point that the first names of a path lead to; empty if it is on the root's volume.
std::string_view volumeOnPath(std::string_view path) {
    for (const auto& [folder, hasUsers] : kVolumesFolders) {
        if (!path.starts_with(folder) || path.size() <= folder.size() ||
            path[folder.size()] != '/') {
            continue;
        }
        std::size_t end = path.find('/', folder.size() + 1);
        if (hasUsers && end != std::string_view::npos) {
            end = path.find('/', end + 1);
        }
        const std::string_view point = path.substr(0, end);
        if (isMountedAt(std::string(point))) {
            return point;
        }
    }
    return {};
}

} // namespace

std::string exchangedSeparators(std::string_view name) {
    std::string result(name);
    for (char& each : result) {
        each = each == ':' ? '/' : (each == '/' ? ':' : each);
    }
    return result;
}

std::string colonPathOf(std::string_view posixPath) {
    const std::string_view volume = volumeOnPath(posixPath);
    const std::string name = volumeName(volume.empty() ? "/" : volume);
    const std::string_view rest = posixPath.substr(volume.size());
    const std::string below = exchangedSeparators(rest.starts_with('/') ? rest.substr(1) : rest);
    return validText(fmt::format("{}:{}", name, below));
}

std::string posixPathOf(std::string_view colonPath) {
    if (colonPath.starts_with('/')) {
        return std::string(colonPath);
    }
    const std::size_t colon = colonPath.find(':');
    const std::string_view first = colonPath.substr(0, colon);
    if (first.empty() || first == kStartupDisk) {
        return colon == std::string_view::npos
                   ? "/"
                   : "/" + exchangedSeparators(colonPath.substr(colon + 1));
    }
    for (const std::string& volume : volumes()) {
        if (volumeName(volume) == first) {
            return colon == std::string_view::npos
                       ? volume
                       : joined(volume, exchangedSeparators(colonPath.substr(colon + 1)));
        }
    }
    return "/" + exchangedSeparators(colon == std::string_view::npos ? colonPath
                                                                     : colonPath.substr(colon + 1));
}

std::vector<std::string> volumes() {
    std::vector<std::string> found = {"/"};
    for (const auto& [folder, hasUsers] : kVolumesFolders) {
        for (const std::string& each : foldersIn(std::string(folder))) {
            const std::vector<std::string> candidates =
                hasUsers ? foldersIn(each) : std::vector{each};
            std::ranges::copy_if(candidates, std::back_inserter(found), isMountedAt);
        }
    }
    return found;
}

std::string volumeName(std::string_view mountPoint) {
    return mountPoint == "/" ? std::string(kStartupDisk)
                             : exchangedSeparators(lastName(mountPoint));
}

std::string_view lastName(std::string_view path) noexcept {
    path = withoutTrailingSlashes(path);
    return path == "/" ? path : path.substr(path.rfind('/') + 1);
}

std::string folderOf(std::string_view path) {
    path = withoutTrailingSlashes(path);
    const std::size_t slash = path.rfind('/');
    return slash == 0 || slash == std::string_view::npos ? "/" : std::string(path.substr(0, slash));
}

std::string joined(std::string_view folder, std::string_view name) {
    return folder.ends_with('/') ? fmt::format("{}{}", folder, name)
                                 : fmt::format("{}/{}", folder, name);
}

bool isItemName(std::string_view name) noexcept {
    constexpr std::size_t kLongest = 255;
    return !name.empty() && name != "." && name != ".." && name.size() <= kLongest &&
           name.find('/') == std::string_view::npos && name.find('\0') == std::string_view::npos;
}

} // namespace qv::applescript::world
