#pragma once

#include "platform/foundation/os/Descriptor.h"
#include "platform/foundation/os/FileKey.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unordered_map>
#include <vector>

namespace qv {

/// Files that are reached through links, so that no event in a watched folder tells of a change.
class LinkedFiles {
public:
    void clear() { files_.clear(); }
    /// Has to be called before the file is read.
    void note(const std::string& path);
    [[nodiscard]] bool haveChanged() const;

private:
    struct File {
        std::string path;
        std::optional<FileKey> key; // none when there was nothing
        bool isSettled;             // a further change would show in the key
    };
    std::vector<File> files_;
};

/// Tells whether what was read of some folders still holds. Events (inotify(7)) say so, and a look
/// at each root: it may have appeared, or another one may have taken its place. Where events cannot
/// be had (no inotify, too many watches, a file system that others change from elsewhere), or were
/// lost, everything counts as changed.
class ChangeWatch {
public:
    /// The part of a folder that was read.
    enum class Interest : std::uint8_t {
        entries = 1,   ///< desktop entries and sub-folders
        folders = 2,   ///< sub-folders
        infoLists = 4, ///< the folders in which a bundle keeps its information list
    };

    /// Forgets what was read before; between this and `endReading` everything is read anew.
    void beginReading();
    void endReading();
    /// A root, followed if it is a link: open for reading; none when it cannot be opened. `copy`:
    /// as for copiedPath.
    [[nodiscard]] Descriptor openRoot(const std::string& path, const std::string& copy = {});
    /// Has to be called before the folder is read.
    void watch(int folder, Interest interest);
    [[nodiscard]] LinkedFiles& links() { return links_; }

    [[nodiscard]] bool hasChanged();

private:
    struct Root {
        std::string path;
        std::string copy;
        std::optional<struct stat> info;
    };
    [[nodiscard]] bool tellsOfChange(const ::inotify_event& event) const;
    [[nodiscard]] bool takeEvents();
    [[nodiscard]] bool haveRootsChanged() const;

    Descriptor events_;
    std::unordered_map<int, unsigned> interests_; // by watch descriptor
    std::unordered_map<int, unsigned> formerInterests_;
    std::vector<Root> roots_;
    LinkedFiles links_;
    bool isReliable_ = false;
};

} // namespace qv
