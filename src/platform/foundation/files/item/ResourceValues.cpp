#include "platform/foundation/files/item/ResourceValues.h"

#include "platform/foundation/files/item/Volume.h"

#include <algorithm>
#include <array>
#include <fcntl.h>
#include <string_view>
#include <sys/stat.h>

namespace qv::ResourceValues {

namespace {

struct Examined {
    Descriptor item;
    struct stat info{};
};

std::optional<Examined> examined(const NamedItem& named) {
    tl::expected<Descriptor, Error> item = named.hold(LastLink::keep);
    Examined found;
    if (!item || ::fstat(item->get(), &found.info) != 0) {
        return std::nullopt;
    }
    found.item = *std::move(item);
    return found;
}

bool isPackageExtension(std::string_view extension) {
    static constexpr std::array<std::string_view, 19> kExtensions = {
        "app",  "bundle",     "framework", "plugin",      "kext",  "xpc",  "pkg",
        "mpkg", "prefPane",   "appex",     "service",     "saver", "dSYM", "component",
        "nfm",  "mdimporter", "palette",   "qlgenerator", "plugIn"};
    return std::ranges::find(kExtensions, extension) != kExtensions.end();
}

bool isThere(int folder, const char* name) {
    struct stat info{};
    return ::fstatat(folder, name, &info, AT_SYMLINK_NOFOLLOW) == 0;
}

} // namespace

std::optional<URL> volume(const NamedItem& item) {
    const std::optional<Examined> found = examined(item);
    const std::optional<Volume> volume = found ? volumeOf(found->item.get()) : std::nullopt;
    return volume ? std::optional(URL::fileURLWithPath(volume->root)) : std::nullopt;
}

std::optional<bool> isVolume(const NamedItem& item) {
    const std::optional<Examined> found = examined(item);
    return found ? std::optional(isMountPoint(found->item.get())) : std::nullopt;
}

std::optional<std::uint64_t> fileSize(const NamedItem& item) {
    const std::optional<Examined> found = examined(item);
    return found ? std::optional(static_cast<std::uint64_t>(found->info.st_size)) : std::nullopt;
}

std::optional<Date> contentModificationDate(const NamedItem& item) {
    constexpr double kNanosecond = 1e-9;
    const std::optional<Examined> found = examined(item);
    if (!found) {
        return std::nullopt;
    }
    const timespec& modified = found->info.st_mtim;
    return Date{static_cast<double>(modified.tv_sec) - Date::kReference +
                static_cast<double>(modified.tv_nsec) * kNanosecond};
}

std::optional<bool> isPackage(const NamedItem& item) {
    const std::optional<Examined> found = examined(item);
    const std::optional<URL>& url = item.url();
    if (!found || !url) {
        return std::nullopt;
    }
    return S_ISDIR(found->info.st_mode) && isPackage(found->item.get(), url->lastPathComponent());
}

bool isPackage(int folder, std::string_view name) {
    const std::size_t dot = name.rfind('.');
    const bool hasExtension = dot != 0 && dot != std::string_view::npos;
    return (hasExtension && isPackageExtension(name.substr(dot + 1))) ||
           isThere(folder, "Contents/Info.plist") || isThere(folder, "Contents/PkgInfo");
}

} // namespace qv::ResourceValues
