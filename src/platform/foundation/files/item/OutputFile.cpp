#include "platform/foundation/files/item/OutputFile.h"

#include "platform/foundation/files/item/ItemPlace.h"
#include "platform/foundation/os/FileBytes.h"
#include "platform/foundation/os/ReplacementFile.h"

#include <fmt/core.h>

#include <cerrno>
#include <climits>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace qv {

namespace {

constexpr mode_t kPermissions = 07777;

// The item that a path leads to. The kernel follows the links, with the care that it takes in
// folders that all can write to; a new file is made where they end.
struct Target {
    Descriptor item; // of a new file writable
    bool isNew = false;
    struct stat info{};
};

tl::expected<Target, int> openTarget(const std::string& path) {
    constexpr mode_t kAnyone = 0666; // less the umask
    Target target;
    target.item = Descriptor(::open(path.c_str(), O_PATH | O_CLOEXEC));
    if (!target.item && errno == ENOENT) {
        target.item = Descriptor(
            ::open(path.c_str(), O_WRONLY | O_CREAT | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, kAnyone));
        target.isNew = true;
    }
    if (!target.item || ::fstat(target.item.get(), &target.info) != 0) {
        return tl::unexpected(errno);
    }
    return target;
}

// The place at which an item is found without links, as long as it is there.
tl::expected<ItemPlace, int> placeOfTarget(const Target& target) {
    std::string path(PATH_MAX, '\0');
    const std::string link = fmt::format("/proc/self/fd/{}", target.item.get());
    const ssize_t length = ::readlink(link.c_str(), path.data(), path.size());
    if (length < 0) {
        return tl::unexpected(errno);
    }
    path.resize(static_cast<std::size_t>(length));
    auto place = path.starts_with('/') ? placeOf(path) : tl::unexpected(ENOENT);
    struct stat there{};
    if (place &&
        (::fstatat(place->parent.get(), place->name.c_str(), &there, AT_SYMLINK_NOFOLLOW) != 0 ||
         there.st_dev != target.info.st_dev || there.st_ino != target.info.st_ino)) {
        return tl::unexpected(ENOENT);
    }
    return place;
}

int replaceFile(const Target& target, Descriptor folder, std::string name, std::string_view bytes) {
    auto file = ReplacementFile::create(std::move(folder), std::move(name));
    if (!file) {
        return file.error();
    }
    int error = file->append(bytes);
    if (error == 0) {
        error =
            file->give(target.info.st_uid, target.info.st_gid, target.info.st_mode & kPermissions);
    }
    return error == 0 ? file->replace() : error;
}

} // namespace

int writeOutputFile(const std::string& path, std::string_view bytes) {
    const auto target = openTarget(path);
    if (!target) {
        return target.error();
    }
    if (S_ISDIR(target->info.st_mode) || S_ISSOCK(target->info.st_mode)) {
        return S_ISDIR(target->info.st_mode) ? EISDIR : EOPNOTSUPP;
    }
    if (!S_ISREG(target->info.st_mode)) {
        // The very item that was looked at; a FIFO waits for its reader here.
        const std::string link = fmt::format("/proc/self/fd/{}", target->item.get());
        const Descriptor opened(::open(link.c_str(), O_WRONLY | O_NOCTTY | O_CLOEXEC));
        return opened ? writeAll(opened.get(), bytes) : errno;
    }
    auto place = placeOfTarget(*target);
    if (!place) {
        return place.error();
    }
    Descriptor folder(::openat(place->parent.get(), ".", O_PATH | O_DIRECTORY | O_CLOEXEC));
    const int error = folder ? replaceFile(*target, std::move(folder), place->name, bytes) : errno;
    if (error != 0 && target->isNew) {
        static_cast<void>(::unlinkat(place->parent.get(), place->name.c_str(), 0));
    }
    return error;
}

} // namespace qv
