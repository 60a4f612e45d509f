#include "platform/security/guarded/GuardedFiles.h"

#include "platform/foundation/os/FileBytes.h"

#include <fmt/core.h>

#include <algorithm>
#include <cerrno>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>

namespace qv {

namespace {

using Place = GuardedPath::Place;
struct DirectoryCloser {
    void operator()(DIR* directory) const noexcept { ::closedir(directory); }
};
using DirectoryHandle = std::unique_ptr<DIR, DirectoryCloser>;

WatchedPaths::Kind kindOf(Place place) {
    return place == Place::ancestor ? WatchedPaths::Kind::ancestor : WatchedPaths::Kind::content;
}

tl::unexpected<std::string> fault(const std::string& path, int errorNumber) {
    return GuardedPath::fault(path, errnoText(errorNumber));
}

} // namespace

GuardedFiles::GuardedFiles(std::string folder, uid_t allowedOwner)
    : folder_(std::move(folder)),
      guard_(allowedOwner,
             [this](const std::string& path, Place place) { paths_.add(path, kindOf(place)); }) {}

bool GuardedFiles::isMissing() const {
    struct stat info{};
    return ::lstat(folder_.c_str(), &info) != 0 && errno == ENOENT;
}

GuardedFiles::Outcome<Descriptor> GuardedFiles::enter() const {
    return guard_.enter(folder_, Place::inside);
}

GuardedFiles::Outcome<Descriptor> GuardedFiles::openFolder(int parent, const Item& folder) const {
    return guard_.openFolder(parent, folder.name, folder.path, Place::inside);
}

GuardedFiles::Outcome<std::vector<GuardedFiles::Item>>
GuardedFiles::itemsIn(int folder, const std::string& path) {
    Descriptor own(::openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    const DirectoryHandle stream(own ? ::fdopendir(own.get()) : nullptr);
    if (!stream) {
        return fault(path, errno);
    }
    static_cast<void>(own.release()); // the stream closes it
    std::vector<Item> items;
    while (items.size() <= kMostFiles) {
        errno = 0;
        const dirent* entry =
            ::readdir(stream.get()); // NOLINT(concurrency-mt-unsafe): the stream is ours alone
        if (entry == nullptr) {
            if (errno != 0) {
                return fault(path, errno);
            }
            break;
        }
        const std::string name = static_cast<const char*>(entry->d_name);
        if (name != "." && name != "..") {
            items.push_back({name, fmt::format("{}/{}", path, name)});
        }
    }
    std::ranges::sort(items, {}, &Item::name);
    return items;
}

GuardedFiles::Outcome<std::string> GuardedFiles::contentOf(int parent, const Item& file) {
    const auto& [name, path] = file;
    if (++files_ > kMostFiles) {
        return GuardedPath::fault(folder_, fmt::format("holds more than {} files", kMostFiles));
    }
    paths_.add(path, WatchedPaths::Kind::content);
    // O_NONBLOCK: a pipe must not hold us up before it is found not to be a regular file.
    const Descriptor opened(
        ::openat(parent, name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    if (!opened) {
        return errno == ELOOP ? GuardedPath::fault(path, "is a symbolic link") : fault(path, errno);
    }
    struct stat info{};
    if (::fstat(opened.get(), &info) != 0) {
        return fault(path, errno);
    }
    if (!S_ISREG(info.st_mode)) {
        return GuardedPath::fault(path, "is not a regular file");
    }
    if (const auto fine = guard_.judge(opened.get(), path, Place::inside); !fine) {
        return tl::unexpected(fine.error());
    }
    if (std::cmp_greater(info.st_size, kLargestFile)) {
        return GuardedPath::fault(path, fmt::format("is larger than {} bytes", kLargestFile));
    }
    std::string content(static_cast<std::size_t>(info.st_size), '\0');
    if (const int error = readExactly(opened.get(), 0, content); error != 0) {
        return fault(path, error);
    }
    return content;
}

} // namespace qv
