#include "platform/foundation/files/FileManager.h"

#include "platform/foundation/files/FileErrors.h"
#include "platform/foundation/files/FileSystemPath.h"
#include "platform/foundation/files/ItemPlace.h"
#include "platform/foundation/files/MoveItem.h"
#include "platform/foundation/files/RemoveItem.h"
#include "platform/foundation/files/Sync.h"
#include "platform/foundation/files/TemporaryName.h"
#include "platform/foundation/files/copy/CopyItem.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace qv::FileManager {

namespace {

constexpr mode_t kReadWriteForAll = 0666; // what the process lets of it

using Place = tl::expected<ItemPlace, Error>;

Place placeAt(const std::optional<URL>& url, std::string_view operation) {
    const tl::expected<std::string, Error> path = fileSystemPath(url);
    if (!path) {
        return tl::unexpected(path.error());
    }
    tl::expected<ItemPlace, int> place = placeOf(*path);
    if (!place) {
        return tl::unexpected(fileError({place.error(), FileAccess::write, *path, ""}, operation));
    }
    return std::move(*place);
}

/// Where an item comes from and where it goes.
struct Way {
    ItemPlace from;
    ItemPlace to;
};

tl::expected<Way, Error> wayOf(const std::optional<URL>& srcURL, const std::optional<URL>& toURL,
                               FileAccess sourceAccess, std::string_view operation) {
    const tl::expected<std::string, Error> source = fileSystemPath(srcURL);
    const tl::expected<std::string, Error> destination = fileSystemPath(toURL);
    if (!source || !destination) {
        return tl::unexpected(source ? destination.error() : source.error());
    }
    const auto failed = [&](int errorNumber, FileAccess access) {
        return tl::unexpected(fileError({errorNumber, access, *source, *destination}, operation));
    };
    tl::expected<ItemPlace, int> from = placeOf(*source);
    if (!from) {
        return failed(from.error(), sourceAccess);
    }
    tl::expected<ItemPlace, int> to = placeOf(*destination);
    if (!to) {
        return failed(to.error(), FileAccess::write);
    }
    return Way{std::move(*from), std::move(*to)};
}

} // namespace

Error removeItemAtURL(const std::optional<URL>& url) {
    const Place place = placeAt(url, "Remove");
    if (!place) {
        return place.error();
    }
    const std::optional<FileFailure> failure = removeItem(*place);
    return failure ? fileError(*failure, "Remove") : Error();
}

Error copyItemAtURL(const std::optional<URL>& srcURL, const std::optional<URL>& toURL) {
    const auto way = wayOf(srcURL, toURL, FileAccess::read, "Copy");
    if (!way) {
        return way.error();
    }
    const std::optional<FileFailure> failure = copyItem(way->from, way->to, MountedBelow::copied);
    return failure ? fileError(*failure, "Copy") : Error();
}

Error moveItemAtURL(const std::optional<URL>& srcURL, const std::optional<URL>& toURL) {
    const auto way = wayOf(srcURL, toURL, FileAccess::write, "Move");
    return way ? moveItem(way->from, way->to) : way.error();
}

bool isLedAstray(const std::optional<URL>& url) {
    const tl::expected<std::string, Error> path = fileSystemPath(url);
    const tl::expected<ItemPlace, int> place = path ? placeOf(*path) : tl::unexpected(EINVAL);
    return !place && place.error() == ELOOP;
}

Error syncItemAtURL(const std::optional<URL>& url) {
    const Place place = placeAt(url, "");
    if (!place) {
        return place.error();
    }
    const int failure = syncItem(*place);
    return failure == 0 ? Error() : fileError({failure, FileAccess::write, place->path, ""}, "");
}

bool createFileAtPath(const std::string& path, std::string_view contents) {
    const tl::expected<ItemPlace, int> place = placeOf(path);
    if (!place) {
        return false;
    }
    const int folder = place->parent.get();
    const std::string temporary = temporaryName();
    const UniqueFd file(::openat(folder, temporary.c_str(),
                                 O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                                 kReadWriteForAll));
    if (!file) {
        return false;
    }
    while (!contents.empty()) {
        const ssize_t count = ::write(file.get(), contents.data(), contents.size());
        if (count < 0 && errno != EINTR) {
            break;
        }
        contents.remove_prefix(count > 0 ? static_cast<std::size_t>(count) : 0);
    }
    const bool done =
        contents.empty() && ::renameat(folder, temporary.c_str(), folder, place->name.c_str()) == 0;
    if (!done) {
        static_cast<void>(::unlinkat(folder, temporary.c_str(), 0));
    }
    return done;
}

bool fileExistsAtPath(const std::string& path) {
    struct stat info{};
    return ::stat(path.c_str(), &info) == 0;
}

} // namespace qv::FileManager
