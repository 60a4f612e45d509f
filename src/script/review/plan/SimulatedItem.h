#pragma once

#include "platform/foundation/files/item/Volume.h"
#include "platform/foundation/os/Folder.h"
#include "script/review/plan/Plan.h"

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace qv {

/// The facts about all items of a tree together, the top included.
struct TreeFacts {
    std::size_t items = 0;
    std::string doubt; ///< the first reason not to trust a prediction about the tree; empty: none
    bool hasLinks = false;
    bool hasSpecialFiles = false;
    bool hasHardLinks = false;
};

/// One item of the simulated tree. Shared between copies of the tree, and between an item and its
/// copies, for as long as nobody changes it.
struct SimulatedItem {
    using Pointer = std::shared_ptr<SimulatedItem>;
    using Children = std::map<std::string, Pointer, std::less<>>;

    SimulatedItem() = default;
    SimulatedItem(const SimulatedItem&) = default;
    SimulatedItem& operator=(const SimulatedItem&) = delete;
    SimulatedItem(SimulatedItem&&) = delete;
    SimulatedItem& operator=(SimulatedItem&&) = delete;
    ~SimulatedItem(); // a tree of any depth

    ItemState state;
    std::optional<std::string> origin;  ///< its real path on the disk, "" for the root, and that of
                                        ///< its content; none: it was made by the script
    std::optional<timespec> modified;   ///< none: by the script
    std::optional<Identity> hardLinked; ///< a file with several names
    std::optional<std::uint64_t> mount; ///< of the item where something is mounted
    /// The reason why nothing sure is known of it, or a step on it cannot be predicted.
    std::string doubt;
    bool isCopy = false; ///< with all below it: files with several names are not those of the disk
    bool isUncertain = false; ///< with all below it, an earlier step may have changed it or not
    /// The children that were looked at; null pointer: there is none of the name.
    Children children;
    bool isListed = false; ///< all of them were
    std::optional<TreeFacts> facts;

    [[nodiscard]] bool isFolder() const noexcept { return state.type == ItemState::Type::folder; }
    [[nodiscard]] bool isLink() const noexcept { return state.type == ItemState::Type::link; }
};

/// Reads items of the machine, or of a copy of another one's files, and changes none.
class SimulatedDisk {
public:
    explicit SimulatedDisk(std::string root) : root_(std::move(root)) {}

    /// The item at a real path below the root, "" for the root itself; null pointer when there is
    /// none.
    SimulatedItem::Pointer read(const std::string& path);
    /// Lists all items that a folder holds and its `children` lack.
    void list(SimulatedItem& folder);
    /// Whether what is made in a folder gets an access control list from it.
    [[nodiscard]] bool handsDownAccess(const SimulatedItem& folder);
    /// The volume on which it is mounted; null pointer when that is not known.
    [[nodiscard]] const Volume* volume(std::uint64_t mount) const;
    /// The path for system calls.
    [[nodiscard]] std::string placeOf(const std::string& path) const { return root_ + path; }
    [[nodiscard]] bool isThisMachine() const noexcept { return root_.empty(); }

    /// Counts items that are looked at; false when a plan has looked at more than it may.
    bool spend(std::size_t items = 1);

private:
    SimulatedItem::Pointer itemFor(int parent, const char* name, std::string origin);

    std::string root_;
    std::map<std::uint64_t, Volume> volumes_;
    std::map<std::string, bool> handsDown_; ///< by path, once it was asked for
    std::size_t read_ = 0;
    std::size_t spent_ = 0;
};

} // namespace qv
