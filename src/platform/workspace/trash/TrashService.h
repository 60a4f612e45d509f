#pragma once

#include "platform/foundation/files/item/ItemPlace.h"
#include "platform/foundation/values/Error.h"

#include <optional>
#include <string>
#include <sys/types.h>

namespace qv {

/// The outcome of trashing an item.
struct TrashOutcome {
    enum class Kind : std::uint8_t {
        moved,          ///< `path` is where it lies now
        failed,         ///< for the reason in `error`
        failedSilently, ///< the cause is not known
    };
    Kind kind = Kind::failed;
    std::string path;
    Error error;
};

/// The folders in which trashed items lie.
struct TrashFolder {
    std::string path;
    bool onOwnVolume = false; ///< of the item that was asked for
};

/// Moves items to the trash, from which a user can restore them. Links are items themselves.
class TrashService {
public:
    TrashService() = default;
    TrashService(const TrashService&) = delete;
    TrashService& operator=(const TrashService&) = delete;
    TrashService(TrashService&&) = delete;
    TrashService& operator=(TrashService&&) = delete;
    virtual ~TrashService() = default;

    virtual TrashOutcome trashItem(const ItemPlace& item) = 0;
    /// The folder that trashItem() would use for an item that is held; none when its volume has
    /// none as yet. Makes nothing.
    virtual std::optional<TrashFolder> trashFolderFor(int item) = 0;
    /// The user's own; none when there is none as yet.
    virtual std::optional<std::string> homeTrashFolder() = 0;
    /// Notes where an item came from that was moved into a trash folder by other means, so that it
    /// can be restored. Does what can be done.
    virtual void noteOrigin(const std::string& pathInTrash, const ItemPlace& origin) = 0;
};

/// The trash as desktops of Linux show it: freedesktop.org Trash 1.0. The home trash is for items
/// on the home folder's volume; else the volume's shared `.Trash/UID` where that is safe to use, or
/// its `.Trash-UID`. Volumes that are read-only, no real storage, or mounted with x-gvfs-notrash
/// have none. Never follows a link below the volume's root, and never uses a folder of another
/// owner.
///
/// Errors, of NSCocoaErrorDomain with the path and the POSIX error: 4 no such item, 3328 the volume
/// has no trash, 513 no permission, 642 read-only, 640 no space, 512 anything else.
class FreedesktopTrash final : public TrashService {
public:
    /// Makes the trash of the effective user, whose home the user database knows. `home` replaces
    /// it, for tests.
    explicit FreedesktopTrash(std::optional<std::string> home = std::nullopt);

    TrashOutcome trashItem(const ItemPlace& item) override;
    std::optional<TrashFolder> trashFolderFor(int item) override;
    std::optional<std::string> homeTrashFolder() override;
    void noteOrigin(const std::string& pathInTrash, const ItemPlace& origin) override;

private:
    std::string home_;
    uid_t user_;
};

} // namespace qv
