#include "platform/foundation/files/item/FileErrors.h"
#include "platform/foundation/files/item/ItemPlace.h"
#include "platform/foundation/files/item/Volume.h"
#include "platform/foundation/os/Descriptor.h"
#include "platform/foundation/os/Folder.h"
#include "platform/foundation/process/state/UserRecord.h"
#include "platform/workspace/trash/TrashInfo.h"
#include "platform/workspace/trash/TrashService.h"

#include <fmt/core.h>

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace qv {

namespace {

constexpr int kFolderFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
constexpr mode_t kOwnerOnly = 0700;

Error trashError(const std::string& path, int errorNumber) {
    const bool hasNoTrash = errorNumber == EXDEV || errorNumber == ENOTSUP;
    return {error_domain::kCocoa,
            hasNoTrash ? cocoa_error::kFeatureUnsupported
                       : cocoaFileCode(FileAccess::write, errorNumber),
            Value::dictionary(
                {{error_key::kFilePath, pathText(path)},
                 {error_key::kUserStringVariant, Value::array({Value::string("Trash")})},
                 {error_key::kUnderlyingError, Value::error(Error::posix(errorNumber))}})};
}

std::string ownHome() {
    const std::optional<UserRecord> user = userRecord(::geteuid());
    return user ? user->home : "/";
}

enum class Missing : std::uint8_t { make, leave };

Descriptor folderIn(int parent, const std::string& name, Missing missing) {
    return missing == Missing::make ? openOrMakeFolderIn(parent, name.c_str(), kOwnerOnly)
                                    : openFolderIn(parent, name.c_str());
}

Descriptor ownFolderIn(int parent, const std::string& name, Missing missing, uid_t owner) {
    Descriptor folder = folderIn(parent, name, missing);
    struct stat info{};
    if (folder && (::fstat(folder.get(), &info) != 0 || info.st_uid != owner)) {
        folder.reset();
        errno = EPERM;
    }
    return folder;
}

/// A trash that is there, or was made.
struct Trash {
    Descriptor folder;
    std::string path;
    std::string volumeRoot; ///< the folder that origins are relative to; empty for the home trash
};

/// Finds the trash of one item.
class TrashFinder {
public:
    TrashFinder(std::string home, uid_t user, Missing missing)
        : home_(std::move(home)), user_(user), missing_(missing) {}

    // Returns none, and errno, when there is none.
    [[nodiscard]] std::optional<Trash> homeTrash() const {
        Trash trash{Descriptor(::open(home_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)), home_,
                    ""};
        for (const char* name : {".local", "share", "Trash"}) {
            if (!trash.folder) {
                return std::nullopt;
            }
            trash.folder = ownFolderIn(trash.folder.get(), name, missing_, user_);
            trash.path += std::string("/") + name;
        }
        return trash.folder ? std::optional(std::move(trash)) : std::nullopt;
    }

    [[nodiscard]] std::optional<Trash> ofItem(int item) const {
        const std::optional<Volume> volume = volumeOf(item);
        if (!volume) {
            return std::nullopt;
        }
        const std::optional<Volume> atHome = volumeOf(home_);
        if (atHome && atHome->mountID == volume->mountID) {
            return homeTrash();
        }
        if (volume->isReadOnly || volume->isPseudo() || volume->forbidsTrash) {
            errno = ENOTSUP;
            return std::nullopt;
        }
        return ofVolume(volume->root);
    }

private:
    [[nodiscard]] std::optional<Trash> ofVolume(const std::string& root) const {
        const Descriptor top(::open(root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        if (!top) {
            return std::nullopt;
        }
        const std::string below = root == "/" ? "" : root;
        const Descriptor shared = folderIn(top.get(), ".Trash", Missing::leave);
        struct stat info{};
        if (shared && ::fstat(shared.get(), &info) == 0 && (info.st_mode & S_ISVTX) != 0) {
            Descriptor own = ownFolderIn(shared.get(), std::to_string(user_), missing_, user_);
            if (own) {
                return Trash{std::move(own), fmt::format("{}/.Trash/{}", below, user_), root};
            }
        }
        const std::string name = fmt::format(".Trash-{}", user_);
        Descriptor own = ownFolderIn(top.get(), name, missing_, user_);
        if (!own) {
            errno = errno == EROFS ? EROFS : ENOTSUP;
            return std::nullopt;
        }
        return Trash{std::move(own), below + "/" + name, root};
    }

    std::string home_;
    uid_t user_;
    Missing missing_;
};

std::string parentOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    return slash == 0 || slash == std::string::npos ? "/" : path.substr(0, slash);
}

std::string nameOf(const std::string& path) { return path.substr(path.rfind('/') + 1); }

// Moves an item into a trash under the first free name.
TrashOutcome moveInto(const Trash& trash, const ItemPlace& item) {
    const auto failed = [&](int errorNumber) {
        return TrashOutcome{TrashOutcome::Kind::failed, "", trashError(item.path, errorNumber)};
    };
    const Descriptor files = folderIn(trash.folder.get(), "files", Missing::make);
    const Descriptor infos =
        files ? folderIn(trash.folder.get(), "info", Missing::make) : Descriptor();
    if (!files || !infos) {
        return failed(errno);
    }
    const std::string text = trashInfoText(resolvedPath(item), trash.volumeRoot);
    for (int attempt = 1;; ++attempt) {
        const std::string chosen = trashName(item.name, attempt);
        const int reserved = writeTrashInfo(infos.get(), chosen, text);
        if (reserved == EEXIST) {
            continue;
        }
        if (reserved != 0) {
            return failed(reserved);
        }
        if (::renameat2(item.parent.get(), item.name.c_str(), files.get(), chosen.c_str(),
                        RENAME_NOREPLACE) == 0) {
            // A power cut must neither bring the item back nor lose it once the step is answered as
            // done.
            static_cast<void>(syncFolder(files.get()));
            static_cast<void>(syncFolder(infos.get()));
            static_cast<void>(syncFolder(item.parent.get()));
            return {TrashOutcome::Kind::moved, trash.path + "/files/" + chosen, {}};
        }
        const int cause = errno;
        removeTrashInfo(infos.get(), chosen);
        if (cause != EEXIST) {
            return failed(cause);
        }
    }
}

} // namespace

FreedesktopTrash::FreedesktopTrash(std::optional<std::string> home)
    : home_(home ? std::move(*home) : ownHome()), user_(::geteuid()) {}

TrashOutcome FreedesktopTrash::trashItem(const ItemPlace& item) {
    const auto failed = [&](int errorNumber) {
        return TrashOutcome{TrashOutcome::Kind::failed, "", trashError(item.path, errorNumber)};
    };
    const tl::expected<Descriptor, int> held = holdItem(item, LastLink::keep);
    if (!held) {
        return failed(held.error());
    }
    if (isMountPoint(held->get())) {
        return failed(EBUSY);
    }
    const auto trash = TrashFinder(home_, user_, Missing::make).ofItem(held->get());
    return trash ? moveInto(*trash, item) : failed(errno);
}

std::optional<TrashFolder> FreedesktopTrash::trashFolderFor(int item) {
    const auto trash = TrashFinder(home_, user_, Missing::leave).ofItem(item);
    if (!trash || !folderIn(trash->folder.get(), "files", Missing::leave)) {
        return std::nullopt;
    }
    return TrashFolder{trash->path + "/files", true};
}

std::optional<std::string> FreedesktopTrash::homeTrashFolder() {
    const auto trash = TrashFinder(home_, user_, Missing::leave).homeTrash();
    if (!trash || !folderIn(trash->folder.get(), "files", Missing::leave)) {
        return std::nullopt;
    }
    return trash->path + "/files";
}

void FreedesktopTrash::noteOrigin(const std::string& pathInTrash, const ItemPlace& origin) {
    const std::string trash = parentOf(parentOf(pathInTrash));
    const Descriptor folder(::open(trash.c_str(), kFolderFlags));
    const Descriptor infos = folder ? folderIn(folder.get(), "info", Missing::make) : Descriptor();
    const auto atHome = TrashFinder(home_, user_, Missing::leave).homeTrash();
    const auto volume = volumeOf(trash);
    if (infos && volume) {
        const bool isHome = atHome && atHome->path == trash;
        static_cast<void>(
            writeTrashInfo(infos.get(), nameOf(pathInTrash),
                           trashInfoText(resolvedPath(origin), isHome ? "" : volume->root)));
    }
}

} // namespace qv
