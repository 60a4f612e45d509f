#pragma once

#include "platform/foundation/os/Folder.h"

#include <tl/expected.hpp>

#include <cstdint>
#include <string>
#include <sys/stat.h>
#include <sys/types.h>

namespace qv {

/// The attributes that the file system tells of an item without opening it; a link is an item
/// itself.
struct ItemRecord {
    mode_t mode = 0; ///< with the bits of the type
    uid_t user = 0;
    gid_t group = 0;
    nlink_t names = 1;
    Identity identity;
    timespec modified{};
    std::uint64_t mountID = 0;
    bool isMountPoint = false;
    bool isProtected = false; ///< immutable, or may only be appended to
    std::string target;       ///< of a link
    bool isPlainLink = true;  ///< a link that leads where its text says
};

/// Examines an item of an open folder; an empty name is the open item itself. The error is an
/// errno.
[[nodiscard]] tl::expected<ItemRecord, int> recordOf(int parent, const char* name);

/// Whether what is made in a folder gets an access control list from it; also where that cannot be
/// found out.
[[nodiscard]] bool handsDownAccess(int folder);

} // namespace qv
