#pragma once

#include "platform/foundation/files/item/FileErrors.h"

#include <atomic>
#include <optional>
#include <sys/stat.h>

namespace qv {

/// The failure of a copy of content, and its side.
struct ContentFailure {
    int errorNumber = 0;
    FileAccess access = FileAccess::read;
};

/// Copies the content of files into fresh, empty ones of the same tree: shares the blocks where the
/// file system can (FICLONE), else copies inside the kernel where it can; holes stay holes. For
/// several threads at once.
class ContentCopier {
public:
    /// Copies from the begin of both files; of a file that grows meanwhile only the bytes that it
    /// had in the beginning.
    [[nodiscard]] std::optional<ContentFailure> copy(int in, int out, const struct stat& info);

private:
    std::atomic<bool> sharesBlocks_ = true; // until it turns out that it does not work here
};

} // namespace qv
