#pragma once

#include "platform/foundation/files/UniqueFd.h"

#include <optional>
#include <sys/types.h>

namespace qv {

/// The file system and number of an item: the same item, whatever its name.
struct Identity {
    dev_t device = 0;
    ino_t inode = 0;
    friend bool operator==(const Identity&, const Identity&) = default;
};

/// None, and errno, when it cannot be examined.
[[nodiscard]] std::optional<Identity> identityOf(int fd);

/// Opens one component, a folder and no link.
[[nodiscard]] UniqueFd openFolderIn(int parent, const char* name);

/// A folder that may be given up for a while, and is known again when it is seen again.
class HeldFolder {
public:
    HeldFolder() noexcept = default;
    explicit HeldFolder(UniqueFd fd) noexcept : fd_(std::move(fd)) {}

    [[nodiscard]] int get() const noexcept { return fd_.get(); }
    [[nodiscard]] bool isOpen() const noexcept { return static_cast<bool>(fd_); }
    void giveUp();
    /// Holds the folder of a name again if it is the one that was given up; otherwise nothing
    /// changes, and errno says why: ESTALE for another one.
    [[nodiscard]] bool reopen(int parent, const char* name);

private:
    UniqueFd fd_;
    std::optional<Identity> identity_; // known from the moment the descriptor was given up
};

} // namespace qv
