#pragma once

#include "platform/foundation/os/Descriptor.h"
#include "platform/foundation/os/Lock.h"
#include "platform/foundation/values/Error.h"
#include "platform/preferences/DomainPlace.h"

#include <tl/expected.hpp>

#include <chrono>
#include <string>

namespace qv::preferences {

/// The folder of a domain as it is; none where it is missing. From the base on no link is followed.
[[nodiscard]] tl::expected<Descriptor, Error> openFolder(const DomainPlace& place);
/// The same, having made what was missing.
[[nodiscard]] tl::expected<Descriptor, Error> makeFolder(const DomainPlace& place);

/// Keeps the other writers of a folder out while the lock lives. The lock is on a file of its own
/// that stays in the folder, not on the folder: any user may open /usr/local/etc, and could then
/// keep every writer waiting. Errors: ETIMEDOUT if another program holds it longer than `patience`.
[[nodiscard]] tl::expected<Lock, Error> lockFolder(int folder, const std::string& folderPath,
                                                   std::chrono::milliseconds patience);

/// A name for a file that is not complete yet; no other part of the system makes such names.
[[nodiscard]] std::string incompleteName();
/// Removes files with such names, which writers have left that were killed. Needs the lock, under
/// which alone such files come to be.
void removeIncomplete(int folder);

} // namespace qv::preferences
