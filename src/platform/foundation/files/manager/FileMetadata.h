#pragma once

#include <sys/stat.h>
#include <sys/types.h>

namespace qv {

inline constexpr mode_t kModeBits = 07777; ///< what a mode has besides the type of the file

/// Whom a fresh file belongs to.
struct Owner {
    uid_t user = 0;
    gid_t group = 0;
    friend bool operator==(const Owner&, const Owner&) = default;
};

/// Gives an open file or folder what another one has, of which `info` tells: owner where that is
/// permitted, extended attributes with the access lists, mode, dates. `now` is its owner as yet.
/// What the file system does not know is passed over; set-ID bits are left out when the owner
/// stays another one. 0 or an errno.
[[nodiscard]] int copyMetadata(int from, int to, const struct stat& info, Owner now);

/// The same for items that are not opened: links, FIFOs, sockets, devices.
[[nodiscard]] int copyMetadata(int fromParent, const char* fromName, int toParent,
                               const char* toName, const struct stat& info);

/// Takes away the access lists that a fresh item has inherited from its folder.
void removeAccessLists(int item) noexcept;

} // namespace qv
