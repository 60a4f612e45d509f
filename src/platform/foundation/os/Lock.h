#pragma once

#include "platform/foundation/os/Deadline.h"
#include "platform/foundation/os/Descriptor.h"

#include <tl/expected.hpp>

#include <utility>

namespace qv {

/// An exclusive lock on a file of a folder, among all programs that use this file for it. The lock
/// ends with its owner, however that ends.
class Lock {
public:
    /// Takes the lock, and creates the file, for its owner alone, where it is missing. A file that
    /// was removed or replaced meanwhile is not the one that others find, so it is opened again.
    /// The errno if it cannot be taken: ETIMEDOUT if another program holds it until the deadline,
    /// EINVAL for an item that is not a regular file.
    [[nodiscard]] static tl::expected<Lock, int> take(int folder, const char* name,
                                                      const Deadline& deadline);

private:
    explicit Lock(Descriptor file) noexcept : file_(std::move(file)) {}
    Descriptor file_;
};

} // namespace qv
