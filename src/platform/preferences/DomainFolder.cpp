#include "platform/preferences/DomainFolder.h"

#include "platform/foundation/os/Folder.h"
#include "platform/foundation/os/TemporaryName.h"
#include "platform/preferences/PreferenceError.h"

#include <algorithm>
#include <cerrno>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <optional>
#include <string_view>
#include <sys/file.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace qv::preferences {

namespace {

using Clock = std::chrono::steady_clock;

constexpr const char* kLockName = ".qvcatalog-preferences.lock";
constexpr std::string_view kIncompletePrefix = ".qvcatalog-preferences";
constexpr int kFolderFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

enum class Missing : std::uint8_t { leave, make };

// A folder in a folder, no link; errno where there is none.
Descriptor folderIn(int parent, const std::string& name, std::optional<mode_t> modeToMake) {
    const bool made = modeToMake && ::mkdirat(parent, name.c_str(), 0700) == 0;
    if (modeToMake && !made && errno != EEXIST) {
        return {};
    }
    Descriptor folder(::openat(parent, name.c_str(), kFolderFlags));
    if (folder && made) {
        // The mask of the process must not count, and a power cut must not lose what it will hold.
        const Descriptor above(::openat(folder.get(), "..", O_PATH | O_DIRECTORY | O_CLOEXEC));
        const int unsaved =
            !above || ::fchmod(folder.get(), *modeToMake) != 0 ? errno : syncFolder(above.get());
        if (unsaved != 0) {
            folder.reset();
            errno = unsaved;
        }
    }
    return folder;
}

Descriptor openBase(const DomainPlace& place, Missing missing) {
    Descriptor base(::open(place.base.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!base && errno == ENOENT && missing == Missing::make && place.baseMode) {
        base = folderIn(AT_FDCWD, place.base, place.baseMode);
    }
    return base;
}

// Without a folder where it is missing and is to be left so.
tl::expected<Descriptor, Error> reachFolder(const DomainPlace& place, Missing missing) {
    Descriptor folder = openBase(place, missing);
    if (!folder) {
        const int cause = errno;
        const bool mayBeMissing = cause == ENOENT && missing == Missing::leave && place.baseMode;
        return mayBeMissing ? tl::expected<Descriptor, Error>()
                            : tl::unexpected(failureAt(place.base, cause));
    }
    for (std::size_t i = 0; i < place.folders.size(); ++i) {
        folder =
            folderIn(folder.get(), place.folders[i],
                     missing == Missing::make ? std::optional(place.folderMode) : std::nullopt);
        if (!folder && errno == ENOENT && missing == Missing::leave) {
            return {};
        }
        if (!folder) {
            return tl::unexpected(failureAt(place.folderPath(i + 1), errno));
        }
    }
    return folder;
}

// A lock is worth something only while its file is the one that others find.
bool isStillThere(int file, int folder) {
    struct stat held{};
    struct stat found{};
    return ::fstat(file, &held) == 0 &&
           ::fstatat(folder, kLockName, &found, AT_SYMLINK_NOFOLLOW) == 0 &&
           held.st_dev == found.st_dev && held.st_ino == found.st_ino;
}

// 0, EWOULDBLOCK while others have it, or what is wrong.
int tryLock(int folder, Descriptor& file) {
    constexpr mode_t kOwnerOnly = 0600;
    file = Descriptor(::openat(folder, kLockName,
                               O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, kOwnerOnly));
    struct stat info{};
    if (!file || ::fstat(file.get(), &info) != 0) {
        return errno;
    }
    if (!S_ISREG(info.st_mode)) {
        return EINVAL;
    }
    if (::flock(file.get(), LOCK_EX | LOCK_NB) != 0) {
        return errno == EINTR ? EWOULDBLOCK : errno;
    }
    return isStillThere(file.get(), folder) ? 0 : EWOULDBLOCK;
}

bool isIncompleteName(std::string_view name) {
    static const std::size_t kLength = incompleteName().size();
    constexpr std::string_view kHexDigits = "0123456789abcdef";
    constexpr std::size_t kDigits = 16;
    return name.size() == kLength && name.starts_with(kIncompletePrefix) &&
           name.find_last_not_of(kHexDigits) == kLength - kDigits - 1;
}

struct CloseFolder {
    void operator()(DIR* folder) const noexcept { static_cast<void>(::closedir(folder)); }
};

} // namespace

tl::expected<Descriptor, Error> openFolder(const DomainPlace& place) {
    return reachFolder(place, Missing::leave);
}

tl::expected<Descriptor, Error> makeFolder(const DomainPlace& place) {
    return reachFolder(place, Missing::make);
}

tl::expected<FolderLock, Error> FolderLock::take(int folder, const std::string& folderPath,
                                                 std::chrono::milliseconds patience) {
    constexpr std::chrono::milliseconds kBetween{5};
    const Clock::time_point deadline = Clock::now() + patience;
    const auto failed = [&](int errorNumber, std::string_view cause) {
        return tl::unexpected(failureAt(folderPath + "/" + kLockName, errorNumber, cause));
    };
    for (;;) {
        Descriptor file;
        const int status = tryLock(folder, file);
        if (status == 0) {
            return FolderLock(std::move(file));
        }
        if (status == EINVAL) {
            return failed(EINVAL, "is no regular file");
        }
        if (status != EWOULDBLOCK) {
            return tl::unexpected(failureAt(folderPath + "/" + kLockName, status));
        }
        if (Clock::now() >= deadline) {
            return failed(ETIMEDOUT, "others hold the lock");
        }
        std::this_thread::sleep_for(kBetween); // a blocking call could not be given up
    }
}

std::string incompleteName() { return std::string(kIncompletePrefix) + temporaryName(); }

void removeIncomplete(int folder) {
    Descriptor again(::openat(folder, ".", kFolderFlags)); // with an offset of its own
    const std::unique_ptr<DIR, CloseFolder> listing(again ? ::fdopendir(again.get()) : nullptr);
    if (!listing) {
        return;
    }
    static_cast<void>(again.release()); // the listing's now
    // NOLINTNEXTLINE(concurrency-mt-unsafe): nobody else has this listing
    while (const dirent* entry = ::readdir(listing.get())) {
        const char* const name = std::data(entry->d_name);
        if (isIncompleteName(name)) {
            static_cast<void>(::unlinkat(folder, name, 0)); // a folder is none of ours
        }
    }
}

} // namespace qv::preferences
