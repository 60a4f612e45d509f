#pragma once

#include "platform/foundation/os/Descriptor.h"
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

/// Keeps the other writers of a folder out while it lives. What is locked is a file of its own that
/// stays in the folder, and not the folder: anybody may open /usr/local/etc, and could then keep
/// every writer waiting.
class FolderLock {
public:
    /// Errors: ETIMEDOUT when others hold it longer than `patience`.
    static tl::expected<FolderLock, Error> take(int folder, const std::string& folderPath,
                                                std::chrono::milliseconds patience);

private:
    explicit FolderLock(Descriptor file) : file_(std::move(file)) {}
    Descriptor file_;
};

/// A name for a file that is not complete yet; no other part of the system makes such names.
[[nodiscard]] std::string incompleteName();
/// Removes files with such names, which writers have left that were killed. Needs the lock, under
/// which alone such files come to be.
void removeIncomplete(int folder);

} // namespace qv::preferences
