#pragma once

#include "platform/foundation/os/Descriptor.h"

#include <tl/expected.hpp>

#include <cstdint>
#include <string>

namespace qv {

/// Whether a link that a path ends in is followed.
enum class LastLink : std::uint8_t { follow, keep };

/// Holds the item of a path (O_PATH), for all that is looked at or changed afterwards.
///
/// Links are followed, except that root lets no other user lead it: a link that belongs to somebody
/// else is followed only to an item of the same owner, and from there `..` leads only to folders of
/// this owner. Each link of a chain is held to that for itself. The error is an errno: ELOOP for a
/// link that is refused, also when it leads to nothing, which nobody owns; and for the kernel's own
/// links to what a process has open (`/proc/PID/root`), which nobody has laid there.
[[nodiscard]] tl::expected<Descriptor, int> holdItem(const std::string& path, LastLink last);

/// The same from an open folder on; `name` is one path component.
[[nodiscard]] tl::expected<Descriptor, int> holdItem(int parent, const char* name, LastLink last);

/// The path by which a held item is reached without any link; empty where the kernel does not tell.
[[nodiscard]] std::string pathOfHeldItem(int item);

} // namespace qv
