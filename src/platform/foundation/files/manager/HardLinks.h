#pragma once

#include "platform/foundation/os/Folder.h"

#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <sys/stat.h>

namespace qv {

/// The files with several names that a copy has come across, so that their copies are one file as
/// well. Remembers a file until its last name was seen, up to 128 MiB of paths: ENOMEM beyond. For
/// several threads at once.
class HardLinks {
public:
    enum class Outcome : std::uint8_t {
        linked, ///< the new name was given to the copy that there is
        made,   ///< there was none, and `make` was called and succeeded
        failed, ///< errno
    };

    /// `root` is the copy's root folder and stays with the caller.
    explicit HardLinks(int root) : root_(root) {}

    /// Gives the copy of the file of which `info` tells the name `path`, below the root; `parent`
    /// is the open folder of that.
    Outcome link(const struct stat& info, std::string path, int parent,
                 const std::function<bool()>& make);

private:
    struct Less {
        bool operator()(const Identity& left, const Identity& right) const noexcept {
            return left.inode != right.inode ? left.inode < right.inode
                                             : left.device < right.device;
        }
    };
    struct Copy {
        std::string path;
        nlink_t namesLeft = 0;
        timespec modified{};
        off_t size = 0;
    };
    bool linkTo(const std::string& path, int parent, const char* name) const;

    int root_;
    std::size_t remembered_ = 0; // bytes
    std::mutex mutex_;
    std::map<Identity, Copy, Less> copies_;
};

} // namespace qv
