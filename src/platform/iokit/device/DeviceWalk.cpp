#include "platform/iokit/device/DeviceWalk.h"

#include "platform/foundation/os/Folder.h"

#include <algorithm>
#include <sys/stat.h>

namespace qv {

namespace {

constexpr std::size_t kMostHeld = 48; // levels whose descriptors are kept

// A folder whose subfolders are being walked.
struct WalkLevel {
    Descriptor folder; // none while it is given up
    std::uint64_t inode;
    std::uint64_t device; // nearest, itself included
    std::size_t pathLength;
    std::vector<FolderItem> items;
    std::size_t next = 0;
};

bool isDevice(const std::vector<FolderItem>& items) {
    return std::ranges::any_of(items, [](const FolderItem& item) {
        return item.kind == FolderItem::Kind::file && item.name == "uevent";
    });
}

// Every device has a folder of this name for the kernel's facts about its power; no other device
// can have the name there.
bool isKernelsOwn(const FolderItem& item, bool inDevice) {
    return inDevice && item.name == "power";
}

std::uint64_t inodeOf(int folder) {
    const auto identity = identityOf(folder);
    return identity ? identity->inode : 0;
}

class Walk {
public:
    explicit Walk(DeviceVisitor& visitor) : visitor_(visitor), path_("/devices") {}

    void run(Descriptor devices) {
        enter(std::move(devices), 0);
        while (!levels_.empty()) {
            WalkLevel& level = levels_.back();
            const FolderItem* folder = nextFolder(level);
            if (folder == nullptr) {
                leave();
                continue;
            }
            path_.resize(level.pathLength);
            path_ += '/';
            path_ += folder->name;
            if (Descriptor below = openFolderIn(level.folder.get(), folder->name.c_str())) {
                if (levels_.size() > kMostHeld) {
                    level.folder.reset();
                }
                const std::uint64_t device = level.device; // the level may move
                enter(std::move(below), device, folder->inode);
            }
        }
    }

private:
    static const FolderItem* nextFolder(WalkLevel& level) {
        while (level.folder && level.next < level.items.size()) {
            const FolderItem& item = level.items[level.next++];
            if (item.kind == FolderItem::Kind::folder &&
                !isKernelsOwn(item, level.device == level.inode)) {
                return &item;
            }
        }
        return nullptr;
    }

    void enter(Descriptor folder, std::uint64_t above, std::uint64_t inode = 0) {
        auto items = itemsOf(folder.get());
        if (!items) {
            leaveTo(folder.get());
            return;
        }
        WalkLevel level{std::move(folder), inode, above, path_.size(), std::move(*items)};
        if (inode != 0 && isDevice(level.items)) {
            visitor_.visit({inode, above, path_, level.folder.get(), level.items});
            level.device = inode;
        }
        levels_.push_back(std::move(level));
    }

    void leave() {
        const WalkLevel left = std::move(levels_.back());
        levels_.pop_back();
        leaveTo(left.folder.get());
    }

    // Opens the folder above again where it was given up. A folder that has been moved since has
    // another one above; the rest of the one that was left is for the next walk then.
    void leaveTo(int below) {
        if (levels_.empty() || levels_.back().folder) {
            return;
        }
        WalkLevel& level = levels_.back();
        if (Descriptor above = openFolderIn(below, "..");
            above && inodeOf(above.get()) == level.inode) {
            level.folder = std::move(above);
        }
    }

    DeviceVisitor& visitor_;
    std::string path_;
    std::vector<WalkLevel> levels_;
};

} // namespace

bool walkDevices(int root, DeviceVisitor& visitor) {
    Descriptor devices = openFolderIn(root, "devices");
    if (!devices) {
        return false;
    }
    Walk(visitor).run(std::move(devices));
    return true;
}

bool visitDevice(int root, std::string_view path, std::uint64_t parent, DeviceVisitor& visitor) {
    const auto folder = DeviceFolder::open(root, path, 0);
    if (!folder) {
        return false;
    }
    const auto items = itemsOf(folder->get());
    if (!items || !isDevice(*items)) {
        return false;
    }
    visitor.visit({inodeOf(folder->get()), parent, path, folder->get(), *items});
    return true;
}

} // namespace qv
