#pragma once

#include "platform/foundation/os/Descriptor.h"

#include <optional>
#include <sys/types.h>

namespace qv {

/// The file system and number of an item: the same item, whatever its name.
struct Identity {
    dev_t device = 0;
    ino_t inode = 0;
    friend bool operator==(const Identity&, const Identity&) = default;
};

/// Returns none, and errno, when it cannot be examined.
[[nodiscard]] std::optional<Identity> identityOf(int fd);

/// Opens one component, a folder and no link.
[[nodiscard]] Descriptor openFolderIn(int parent, const char* name);

/// The same, having made the folder if it was missing: it has exactly this mode, whatever the mask
/// of the process is, and survives a power cut.
[[nodiscard]] Descriptor openOrMakeFolderIn(int parent, const char* name, mode_t mode);

/// Makes the names in a folder survive a power cut. Returns 0 or the errno; a folder that may not
/// be read, or whose file system cannot sync, counts as synced.
[[nodiscard]] int syncFolder(int folder);
/// The same verdict for the result of a sync call just made: 0, or the errno.
[[nodiscard]] int syncOutcome(int result) noexcept;

/// A folder that may be given up for a while, and is known again when it is seen again.
class Folder {
public:
    Folder() noexcept = default;
    explicit Folder(Descriptor fd) noexcept : fd_(std::move(fd)) {}

    [[nodiscard]] int get() const noexcept { return fd_.get(); }
    [[nodiscard]] bool isOpen() const noexcept { return static_cast<bool>(fd_); }
    void giveUp();
    /// Holds the folder of a name again if it is the one that was given up; otherwise nothing
    /// changes, and errno says why: ESTALE for another one.
    [[nodiscard]] bool reopen(int parent, const char* name);

private:
    Descriptor fd_;
    std::optional<Identity> identity_; // known from the moment the descriptor was given up
};

} // namespace qv
