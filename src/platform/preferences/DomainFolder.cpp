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
#include <sys/stat.h>
#include <unistd.h>

namespace qv::preferences {

namespace {

constexpr const char* kLockName = ".qvcatalog-preferences.lock";
constexpr std::string_view kIncompletePrefix = ".qvcatalog-preferences";
constexpr int kFolderFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

enum class Missing : std::uint8_t { leave, make };

Descriptor folderIn(int parent, const std::string& name, std::optional<mode_t> modeToMake) {
    return modeToMake ? openOrMakeFolderIn(parent, name.c_str(), *modeToMake)
                      : openFolderIn(parent, name.c_str());
}

Descriptor openBase(const DomainPlace& place, Missing missing) {
    Descriptor base(::open(place.base.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!base && errno == ENOENT && missing == Missing::make && place.baseMode) {
        base = folderIn(AT_FDCWD, place.base, place.baseMode);
    }
    return base;
}

// Returns an empty descriptor where the folder is missing and is to be left so.
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

tl::expected<Lock, Error> lockFolder(int folder, const std::string& folderPath,
                                     std::chrono::milliseconds patience) {
    return Lock::take(folder, kLockName, Deadline::after(patience)).map_error([&](int errorNumber) {
        const std::string path = folderPath + "/" + kLockName;
        switch (errorNumber) {
        case EINVAL:
            return failureAt(path, EINVAL, "is not a regular file");
        case ETIMEDOUT:
            return failureAt(path, ETIMEDOUT, "others hold the lock");
        default:
            return failureAt(path, errorNumber);
        }
    });
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
            static_cast<void>(::unlinkat(folder, name, 0)); // a folder is never ours
        }
    }
}

} // namespace qv::preferences
