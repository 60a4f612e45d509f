#pragma once

#include "platform/foundation/os/Deadline.h"
#include "platform/foundation/os/Descriptor.h"
#include "platform/foundation/os/Lock.h"
#include "platform/foundation/values/Error.h"

#include <tl/expected.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <sys/types.h>
#include <utility>
#include <vector>

namespace qv::imager {

/// A process, told from another one that gets its number later.
struct Owner {
    pid_t pid = 0;           ///< 0: none, which never ends
    std::uint64_t start = 0; ///< as parseStartTime

    [[nodiscard]] static Owner parentOfThisProcess();
    [[nodiscard]] bool hasEnded() const;
};

/// The facts about an image that suffice to take away all that attaching it has made, at any time.
struct Attachment {
    std::string mountPoint; ///< absolute
    std::string workFolder; ///< absolute; need not exist
    bool isCopy = false;    ///< the mount point holds a copy of our own
    Owner owner;            ///< the attachment is of no use after its end
};

/// The records of what is attached, a file for each name of a mount point, in a folder that only
/// this process's user can enter: root's of the configuration, in /run/user for others.
class AttachmentRecords {
public:
    /// Makes the folder where it is missing.
    [[nodiscard]] static tl::expected<AttachmentRecords, Error> open();

    /// Keeps others from attaching or detaching by this name while it is held. ETIMEDOUT if another
    /// process holds it until the deadline.
    [[nodiscard]] tl::expected<Lock, int> lock(const std::string& name,
                                               const Deadline& deadline) const;

    /// Returns none if there is no record.
    [[nodiscard]] tl::expected<std::optional<Attachment>, Error>
    read(const std::string& name) const;
    /// Has to be called with the lock held.
    [[nodiscard]] Error write(const std::string& name, const Attachment& attachment) const;
    /// The record, and the file of its lock, which is to be held.
    [[nodiscard]] Error remove(const std::string& name) const;
    /// The names of all records and locks, each once.
    [[nodiscard]] std::vector<std::string> names() const;

private:
    explicit AttachmentRecords(Descriptor folder) : folder_(std::move(folder)) {}
    Descriptor folder_;
};

} // namespace qv::imager
