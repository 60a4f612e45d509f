#include "platform/accessibility/TrustFolder.h"

#include "platform/accessibility/AccessibilityError.h"
#include "platform/foundation/os/FileBytes.h"
#include "platform/foundation/os/Folder.h"
#include "platform/foundation/os/ReplacementFile.h"
#include "platform/foundation/os/TemporaryName.h"

#include <fmt/core.h>

#include <cerrno>
#include <cstdint>
#include <fcntl.h>
#include <filesystem>
#include <sys/file.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace qv {

namespace {

namespace fs = std::filesystem;

constexpr const char* kFolder = "accessibility";
constexpr const char* kStore = "trusted.plist";
constexpr const char* kLock = "lock";
constexpr std::size_t kLargestStore = std::size_t{16} << 20U; // some 20,000 programs

enum class Missing : std::uint8_t { isMade, isNone };

Error storeFault(std::string_view path, std::string_view cause) {
    return accessibilityError(kAXErrorCannotComplete, path, cause);
}

Error storeFault(std::string_view path, int errorNumber) {
    return storeFault(path, errnoText(errorNumber));
}

Error judge(int fd, std::string_view path) {
    struct stat info{};
    if (::fstat(fd, &info) != 0) {
        return storeFault(path, errno);
    }
    if (info.st_uid != 0) {
        return storeFault(path, fmt::format("belongs to user {}, not to root", info.st_uid));
    }
    if ((info.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
        return storeFault(path, "can be written by others than root");
    }
    return {};
}

int makeFolder(int parent, const char* name) {
    constexpr mode_t kMode = 0755;
    if (::mkdirat(parent, name, kMode) != 0) {
        return errno == EEXIST ? 0 : errno;
    }
    // Whatever the mask and the folder above: group and mode are these.
    const Descriptor made(::openat(parent, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!made || ::fchown(made.get(), 0, 0) != 0 || ::fchmod(made.get(), kMode) != 0) {
        return errno;
    }
    return syncFolder(parent);
}

// The descriptor is none when there is no folder and none is to be made.
tl::expected<Descriptor, Error> enter(int parent, const char* name, const std::string& path,
                                      Missing missing) {
    constexpr int kFlags = O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
    Descriptor folder(::openat(parent, name, kFlags));
    if (!folder && errno == ENOENT && missing == Missing::isMade) {
        if (const int error = makeFolder(parent, name)) {
            return tl::unexpected(storeFault(path, error));
        }
        folder = Descriptor(::openat(parent, name, kFlags));
    }
    if (!folder) {
        if (errno == ENOENT && missing == Missing::isNone) {
            return folder;
        }
        return tl::unexpected(errno == ENOTDIR
                                  ? storeFault(path, "is no folder (a link does not count)")
                                  : storeFault(path, errno));
    }
    if (Error error = judge(folder.get(), path)) {
        return tl::unexpected(std::move(error));
    }
    return folder;
}

// The lower folder.
tl::expected<Descriptor, Error> enterBoth(const fs::path& state, Missing missing) {
    const fs::path above = state.parent_path();
    Descriptor parent(::open(above.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!parent) {
        if (errno == ENOENT && missing == Missing::isNone) {
            return parent;
        }
        return tl::unexpected(storeFault(above.native(), errno));
    }
    auto folder = enter(parent.get(), state.filename().c_str(), state, missing);
    if (!folder || !*folder) {
        return folder;
    }
    return enter(folder->get(), kFolder, state / kFolder, missing);
}

} // namespace

tl::expected<std::optional<TrustFolder>, Error> TrustFolder::find(const std::string& state) {
    auto folder = enterBoth(state, Missing::isNone);
    if (!folder) {
        return tl::unexpected(folder.error());
    }
    if (!*folder) {
        return std::nullopt;
    }
    return TrustFolder(std::move(*folder), fs::path(state) / kFolder);
}

tl::expected<TrustFolder, Error> TrustFolder::make(const std::string& state) {
    return enterBoth(state, Missing::isMade).map([&](Descriptor folder) {
        return TrustFolder(std::move(folder), fs::path(state) / kFolder);
    });
}

std::string TrustFolder::pathOf(std::string_view name) const {
    return fmt::format("{}/{}", path_, name);
}

tl::expected<TrustList, Error> TrustFolder::load() const {
    const std::string path = pathOf(kStore);
    const Descriptor file(
        ::openat(folder_.get(), kStore, O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC));
    if (!file) {
        return errno == ENOENT ? tl::expected<TrustList, Error>()
                               : tl::unexpected(storeFault(path, errno));
    }
    if (Error error = judge(file.get(), path)) {
        return tl::unexpected(std::move(error));
    }
    struct stat info{};
    if (::fstat(file.get(), &info) != 0 || !S_ISREG(info.st_mode)) {
        return tl::unexpected(storeFault(path, "is no regular file"));
    }
    if (static_cast<std::uint64_t>(info.st_size) > kLargestStore) {
        return tl::unexpected(storeFault(path, "is larger than 16 MiB"));
    }
    std::string content(static_cast<std::size_t>(info.st_size), '\0');
    if (const int error = readExactly(file.get(), 0, content)) {
        return tl::unexpected(storeFault(path, error));
    }
    return readTrustList(content).map_error(
        [&](const std::string& cause) { return storeFault(path, cause); });
}

tl::expected<Descriptor, Error> TrustFolder::lock(std::chrono::milliseconds patience) const {
    constexpr mode_t kOwnerOnly = 0600; // who could open it could keep everybody waiting
    const std::string path = pathOf(kLock);
    Descriptor file(
        ::openat(folder_.get(), kLock, O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, kOwnerOnly));
    if (!file) {
        return tl::unexpected(storeFault(path, errno));
    }
    constexpr std::chrono::milliseconds kPause{5};
    const auto deadline = std::chrono::steady_clock::now() + patience;
    while (::flock(file.get(), LOCK_EX | LOCK_NB) != 0) {
        if (errno != EWOULDBLOCK && errno != EINTR) {
            return tl::unexpected(storeFault(path, errno));
        }
        if (std::chrono::steady_clock::now() >= deadline) {
            return tl::unexpected(
                storeFault(path, "another program is changing the store for too long"));
        }
        std::this_thread::sleep_for(kPause); // this kind of lock has no wait with an end
    }
    if (Error error = removeLeftovers()) {
        return tl::unexpected(std::move(error));
    }
    return file;
}

Error TrustFolder::removeLeftovers() const {
    std::error_code error;
    const fs::path held = fmt::format("/proc/self/fd/{}", folder_.get());
    for (auto item = fs::directory_iterator(held, error); !error && item != fs::end(item);
         item.increment(error)) {
        const std::string name = item->path().filename();
        if (isTemporaryName(name) && ::unlinkat(folder_.get(), name.c_str(), 0) != 0) {
            return storeFault(pathOf(name), errno);
        }
    }
    return error ? storeFault(path_, error.value()) : Error();
}

Error TrustFolder::save(const TrustList& list) const {
    const std::string path = pathOf(kStore);
    const auto content = writeTrustList(list);
    if (!content) {
        return storeFault(path, content.error());
    }
    if (content->size() > kLargestStore) {
        return storeFault(path, "would be larger than 16 MiB");
    }
    constexpr mode_t kForAllToRead = 0644;
    Descriptor folder(::fcntl(folder_.get(), F_DUPFD_CLOEXEC, 0));
    if (!folder) {
        return storeFault(path, errno);
    }
    auto file = ReplacementFile::create(std::move(folder), kStore);
    int error = file ? file->append(*content) : file.error();
    error = error == 0 ? file->give(0, 0, kForAllToRead) : error;
    error = error == 0 ? file->replace() : error;
    return error == 0 ? Error() : storeFault(path, error);
}

} // namespace qv
