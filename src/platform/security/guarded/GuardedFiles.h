#pragma once

#include "platform/security/guarded/GuardedPath.h"
#include "platform/security/guarded/WatchedPaths.h"

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

namespace qv {

/// Reads a folder of small files that an administrator laid down. Folders and files, and every
/// folder on the way down from the root directory, belong to root or to the allowed owner, cannot
/// be written by group or others (a sticky folder of root on the way is taken: nobody can replace
/// what root owns in it), and are not symbolic links; files are regular, of at most 64 KiB, and at
/// most 32. Errors are a sentence that names the place.
class GuardedFiles {
public:
    template <typename T> using Outcome = GuardedPath::Outcome<T>;
    static constexpr std::size_t kLargestFile = 65536;
    static constexpr std::size_t kMostFiles = 32;

    /// `folder` is absolute.
    GuardedFiles(std::string folder, uid_t allowedOwner);
    GuardedFiles(const GuardedFiles&) = delete;
    GuardedFiles& operator=(const GuardedFiles&) = delete;
    GuardedFiles(GuardedFiles&&) = delete;
    GuardedFiles& operator=(GuardedFiles&&) = delete;
    ~GuardedFiles() = default;

    /// A folder or a file below the folder. `path` is for messages.
    struct Item {
        std::string name;
        std::string path;
    };

    [[nodiscard]] const std::string& folder() const noexcept { return folder_; }
    /// The folder does not exist.
    [[nodiscard]] bool isMissing() const;
    [[nodiscard]] Outcome<Descriptor> enter() const;
    [[nodiscard]] Outcome<Descriptor> openFolder(int parent, const Item& folder) const;
    /// The items of an open folder, sorted; at most one more than may be there.
    [[nodiscard]] static Outcome<std::vector<Item>> itemsIn(int folder, const std::string& path);
    [[nodiscard]] Outcome<std::string> contentOf(int parent, const Item& file);

    /// All paths that were looked at.
    [[nodiscard]] WatchedPaths takePaths() { return std::move(paths_); }

private:
    std::string folder_;
    mutable WatchedPaths paths_;
    GuardedPath guard_; // it calls this object, which must not move
    std::size_t files_ = 0;
};

} // namespace qv
