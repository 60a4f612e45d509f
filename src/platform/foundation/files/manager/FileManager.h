#pragma once

#include "platform/foundation/files/item/NamedItem.h"
#include "platform/foundation/files/manager/FileMetadata.h"
#include "platform/foundation/values/Error.h"

#include <string_view>

/// Items of the file system as a whole, with the errors that the platform's file manager gives:
/// NSCocoaErrorDomain, the path (of an inner item when that is what failed), the destination, the
/// operation and the POSIX error in the user information. No URL is an error like a missing item,
/// code 4; one that is not a file URL is code 262.
///
/// Links are items themselves, never followed as the last component, but by fileExistsAtPath. Trees
/// are walked from open folders, one component at a time, so that nobody who changes them meanwhile
/// leads a call out of them; see files/HeldItem.h for links on the way to an item.
namespace qv::FileManager {

/// A folder with all its content, depth first; items already removed when an error ends it stay
/// removed.
[[nodiscard]] Error removeItemAtURL(const NamedItem& item);

/// Never overwrites: 516 when the destination exists. See files/copy/CopyItem.h for what is kept.
/// When it fails, nothing is left at the destination. Not synced.
[[nodiscard]] Error copyItemAtURL(const NamedItem& source, const NamedItem& destination,
                                  Privileges privileges = Privileges::kept);

/// Never overwrites. A success survives a power cut; see files/MoveItem.h for how.
[[nodiscard]] Error moveItemAtURL(const NamedItem& source, const NamedItem& destination);

/// Waits until an item with all its content and its name would survive a power cut.
[[nodiscard]] Error syncItemAtURL(const NamedItem& item);

/// Writes a file whole or not at all; one that exists is replaced. Whether it succeeded.
[[nodiscard]] bool createFileAtPath(const NamedItem& item, std::string_view contents);

/// Makes a folder, and those on the way to it that are missing, as open to others as the process
/// lets them be. One that is there already will do.
[[nodiscard]] Error createDirectoryAtURL(const NamedItem& item);

/// Whether there is something at the end of all links. A link that must not be followed, or goes
/// in circles, is something itself.
[[nodiscard]] bool fileExistsAtPath(const NamedItem& item);

} // namespace qv::FileManager
