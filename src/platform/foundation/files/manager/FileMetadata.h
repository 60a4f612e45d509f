#pragma once

#include <cstdint>
#include <sys/stat.h>
#include <sys/types.h>

namespace qv {

/// The treatment in a copy of the attributes by which a file system gives rights on the whole
/// machine: set-ID bits, devices, and the attributes that are the system's, capabilities among
/// them.
enum class Privileges : std::uint8_t {
    kept,
    leftOut ///< nobody has vouched for the source's maker; devices are not copied at all
};

inline constexpr mode_t kModeBits = 07777; ///< the bits of a mode besides the type of the file

/// The user and group that a fresh file belongs to.
struct Owner {
    uid_t user = 0;
    gid_t group = 0;
    friend bool operator==(const Owner&, const Owner&) = default;
};

/// Gives an open file or folder what another one has, of which `info` tells: owner where that is
/// permitted, extended attributes with the access lists, mode, dates. `now` is its owner as yet.
/// Attributes that the file system does not know are passed over; set-ID bits are left out when the
/// owner stays another one. 0 or an errno.
[[nodiscard]] int copyMetadata(int from, int to, const struct stat& info, Owner now,
                               Privileges privileges);

/// The same for items that are not opened: links, FIFOs, sockets, devices.
[[nodiscard]] int copyMetadata(int fromParent, const char* fromName, int toParent,
                               const char* toName, const struct stat& info, Privileges privileges);

/// Takes away the access lists that a fresh item has inherited from its folder.
void removeAccessLists(int item) noexcept;

} // namespace qv
