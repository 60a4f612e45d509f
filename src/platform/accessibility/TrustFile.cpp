#include "platform/accessibility/TrustFile.h"

#include "platform/accessibility/AccessibilityService.h"
#include "platform/foundation/os/FileBytes.h"
#include "platform/foundation/os/Folder.h"
#include "platform/foundation/os/Lock.h"
#include "platform/foundation/os/RegularFile.h"
#include "platform/foundation/os/ReplacementFile.h"

#include <fmt/core.h>

#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

namespace qv {

namespace {

namespace fs = std::filesystem;

constexpr const char* kFolder = "accessibility";
constexpr const char* kStore = "trusted.plist";
constexpr const char* kNewStore = "trusted.plist.new";
constexpr const char* kLock = "lock";
constexpr std::size_t kLargestStore = std::size_t{16} << 20U;

enum class Missing : std::uint8_t { isMade, isEmpty };

Error fault(std::string_view path, std::string_view cause) {
    return accessibilityError(kAXErrorCannotComplete, path, cause);
}

Error fault(std::string_view path, int errorNumber) { return fault(path, errnoText(errorNumber)); }

Error judge(int fd, std::string_view path) {
    struct stat info{};
    if (::fstat(fd, &info) != 0) {
        return fault(path, errno);
    }
    if (info.st_uid != 0) {
        return fault(path, fmt::format("belongs to user {}, not to root", info.st_uid));
    }
    if ((info.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
        return fault(path, "can be written by others than root");
    }
    return {};
}

// The descriptor is none if the folder is missing and is not to be made.
tl::expected<Descriptor, Error> enter(int parent, const fs::path& path, Missing missing) {
    constexpr mode_t kMode = 0755;
    const std::string name = path.filename();
    Descriptor folder = missing == Missing::isMade ? openOrMakeFolderIn(parent, name.c_str(), kMode)
                                                   : openFolderIn(parent, name.c_str());
    if (!folder) {
        return errno == ENOENT && missing == Missing::isEmpty
                   ? tl::expected<Descriptor, Error>()
                   : tl::unexpected(fault(path.native(), errno));
    }
    if (Error error = judge(folder.get(), path.native())) {
        return tl::unexpected(std::move(error));
    }
    return folder;
}

tl::expected<Descriptor, Error> openFolder(const fs::path& state, Missing missing) {
    const fs::path above = state.parent_path();
    tl::expected<Descriptor, Error> folder(::open(above.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!*folder && (errno != ENOENT || missing == Missing::isMade)) {
        return tl::unexpected(fault(above.native(), errno));
    }
    for (const fs::path& path : {state, state / kFolder}) {
        if (folder && *folder) {
            folder = enter(folder->get(), path, missing);
        }
    }
    return folder;
}

tl::expected<TrustList, Error> load(int folder, const std::string& path) {
    const Descriptor file(::openat(folder, kStore, O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC));
    if (!file) {
        return errno == ENOENT ? tl::expected<TrustList, Error>()
                               : tl::unexpected(fault(path, errno));
    }
    if (Error error = judge(file.get(), path)) {
        return tl::unexpected(std::move(error));
    }
    const auto content = contentOfRegularFile(file.get(), kLargestStore);
    if (!content) {
        return tl::unexpected(fault(path, errno));
    }
    return readTrustList(*content).map_error(
        [&](const std::string& cause) { return fault(path, cause); });
}

// No other program changes the store while it is held. Its file is its owner's alone: a user who
// could open it could block root's writers.
tl::expected<Lock, Error> lock(int folder, const std::string& path,
                               std::chrono::milliseconds patience) {
    return Lock::take(folder, kLock, Deadline::after(patience)).map_error([&](int errorNumber) {
        return errorNumber == ETIMEDOUT
                   ? fault(path, "another program is changing the store for too long")
                   : fault(path, errorNumber);
    });
}

Error save(int folder, const std::string& path, const TrustList& list) {
    const auto content = writeTrustList(list);
    if (!content) {
        return fault(path, content.error());
    }
    if (content->size() > kLargestStore) {
        return fault(path, EFBIG);
    }
    constexpr mode_t kForAllToRead = 0644;
    // A writer that was killed may have left it. If it stays, create() reports that.
    static_cast<void>(::unlinkat(folder, kNewStore, 0));
    auto file = ReplacementFile::create(openFolderIn(folder, "."), kStore, kNewStore);
    int error = file ? file->append(*content) : file.error();
    error = error == 0 ? file->give(0, 0, kForAllToRead) : error;
    error = error == 0 ? file->replace() : error;
    return error == 0 ? Error() : fault(path, error);
}

std::string pathOfStore(const fs::path& state) { return state / kFolder / kStore; }

} // namespace

tl::expected<TrustList, Error> loadTrustList(const std::string& state) {
    const auto folder = openFolder(state, Missing::isEmpty);
    if (!folder) {
        return tl::unexpected(folder.error());
    }
    return *folder ? load(folder->get(), pathOfStore(state)) : TrustList();
}

Error changeTrustList(const std::string& state, std::chrono::milliseconds patience,
                      const std::function<bool(TrustList&)>& change) {
    const std::string path = pathOfStore(state);
    const auto folder = openFolder(state, Missing::isMade);
    if (!folder) {
        return folder.error();
    }
    const auto held = lock(folder->get(), path, patience);
    if (!held) {
        return held.error();
    }
    auto list = load(folder->get(), path);
    if (!list) {
        return list.error();
    }
    return change(*list) ? save(folder->get(), path, *list) : Error();
}

} // namespace qv
