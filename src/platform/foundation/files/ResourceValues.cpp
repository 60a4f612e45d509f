#include "platform/foundation/files/ResourceValues.h"

#include "platform/foundation/files/FileSystemPath.h"
#include "platform/foundation/files/Volume.h"

#include <algorithm>
#include <array>
#include <string>
#include <string_view>
#include <sys/stat.h>

namespace qv::ResourceValues {

namespace {

struct Item {
    std::string path;
    struct stat info{};
};

std::optional<Item> examined(const std::optional<URL>& url) {
    const tl::expected<std::string, Error> path = fileSystemPath(url);
    Item item;
    if (!path || ::lstat(path->c_str(), &item.info) != 0) {
        return std::nullopt;
    }
    item.path = *path;
    return item;
}

bool isPackageExtension(std::string_view extension) {
    static constexpr std::array<std::string_view, 19> kExtensions = {
        "app",  "bundle",     "framework", "plugin",      "kext",  "xpc",  "pkg",
        "mpkg", "prefPane",   "appex",     "service",     "saver", "dSYM", "component",
        "nfm",  "mdimporter", "palette",   "qlgenerator", "plugIn"};
    return std::ranges::find(kExtensions, extension) != kExtensions.end();
}

bool isThere(const std::string& path) {
    struct stat info{};
    return ::lstat(path.c_str(), &info) == 0;
}

} // namespace

std::optional<URL> volume(const std::optional<URL>& url) {
    const std::optional<Item> item = examined(url);
    const std::optional<Volume> found = item ? volumeOf(item->path) : std::nullopt;
    return found ? std::optional(URL::fileURLWithPath(found->root)) : std::nullopt;
}

std::optional<bool> isVolume(const std::optional<URL>& url) {
    const std::optional<Item> item = examined(url);
    return item ? std::optional(isVolumeRoot(item->path)) : std::nullopt;
}

std::optional<std::uint64_t> fileSize(const std::optional<URL>& url) {
    const std::optional<Item> item = examined(url);
    return item ? std::optional(static_cast<std::uint64_t>(item->info.st_size)) : std::nullopt;
}

std::optional<Date> contentModificationDate(const std::optional<URL>& url) {
    constexpr double kReference = 978307200; // 2001-01-01 in seconds since 1970
    constexpr double kNanosecond = 1e-9;
    const std::optional<Item> item = examined(url);
    if (!item) {
        return std::nullopt;
    }
    const timespec& modified = item->info.st_mtim;
    return Date{static_cast<double>(modified.tv_sec) - kReference +
                static_cast<double>(modified.tv_nsec) * kNanosecond};
}

std::optional<bool> isPackage(const std::optional<URL>& url) {
    const std::optional<Item> item = examined(url);
    if (!item || !url) {
        return std::nullopt;
    }
    return S_ISDIR(item->info.st_mode) && (isPackageExtension(url->pathExtension()) ||
                                           isThere(item->path + "/Contents/Info.plist") ||
                                           isThere(item->path + "/Contents/PkgInfo"));
}

} // namespace qv::ResourceValues
