#pragma once

#include "platform/foundation/files/item/ItemPlace.h"
#include "platform/foundation/os/Descriptor.h"
#include "platform/foundation/values/Error.h"
#include "platform/imager/FileSystemProbe.h"

#include <tl/expected.hpp>

#include <cstdint>

namespace qv::imager {

// Mounts that are not shown anywhere yet: they end with their descriptor unless that happens. The
// kernel ignores devices and set-user-ID bits in all of them.

/// A file system in a file, read-only, through a loop device that the kernel frees with the last
/// user of the mount. Refused without trying for types that no image for a user holds.
[[nodiscard]] tl::expected<Descriptor, Error> mountFileSystem(int file,
                                                              const FileSystemPlace& place);

/// A file of a folder, open for reading by a way on which the kernel has nothing to sync: before a
/// file becomes a loop device it is synced, which would wait for the disk after all that was just
/// unpacked. `empty` is an empty folder. None where the kernel offers no such way.
[[nodiscard]] Descriptor openWithoutSync(int folder, const char* name, int empty);

enum class Access : std::uint8_t { readOnly, readWrite };

/// An open item's own mount again, from the item on. None, and errno, when that is not possible.
[[nodiscard]] Descriptor cloneOfMount(int item, Access access);

/// Gives a mount its place: a folder that is open.
[[nodiscard]] Error show(const Descriptor& mount, int folder);

/// Takes away whatever is mounted at a place, also what is in use: its users keep what they have
/// open. Links are not followed. Returns 0 or the errno; nothing there is 0.
[[nodiscard]] int unmountAll(const ItemPlace& place);

} // namespace qv::imager
