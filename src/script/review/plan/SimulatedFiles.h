#pragma once

#include "platform/foundation/files/item/HeldItem.h"
#include "script/review/plan/SimulatedItem.h"

#include <tl/expected.hpp>

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace qv {

/// Names of real folders from the root on, and that of an item, which need not be there.
using Location = std::vector<std::string>;
[[nodiscard]] std::string pathOf(const Location& location);
/// The doubt about what an earlier step may have changed: one item, or with "/" all of them.
[[nodiscard]] std::string earlierChangeOf(const std::string& path);

/// The files of a machine as steps leave them, over those that it has. Read from the disk when they
/// are first looked at. A copy of this object is a snapshot, which costs little.
///
/// Paths are resolved as the service does, which is root: see files/HeldItem.h. Every unsure fact
/// on which an answer rests is noted as a doubt.
class SimulatedFiles {
public:
    explicit SimulatedFiles(std::shared_ptr<SimulatedDisk> disk);

    // The doubts of one step.

    void beginStep();
    /// The first reason not to trust the answers since the step began; empty: there is none.
    [[nodiscard]] const std::string& doubt() const noexcept { return doubt_; }
    /// The way to an item was in doubt, so that it may be any item.
    [[nodiscard]] bool isAstray() const noexcept { return isAstray_; }
    void noteDoubt(std::string reason);

    // Errors are an errno.

    [[nodiscard]] tl::expected<Location, int> hold(const std::string& path, LastLink last);
    /// An item of a place that placeOf() gave.
    [[nodiscard]] tl::expected<Location, int> holdPlace(const Location& place, LastLink last);
    /// The folder of a path and its last component.
    [[nodiscard]] tl::expected<Location, int> placeOf(const std::string& path);

    // The item at a location, a link itself.

    /// Returns none if there is nothing; `unknown` with a doubt.
    [[nodiscard]] std::optional<ItemState> stateAt(const Location& location);
    [[nodiscard]] bool exists(const Location& location) { return stateAt(location).has_value(); }
    [[nodiscard]] const SimulatedItem* itemAt(const Location& location);
    /// The facts of the item and all below it.
    [[nodiscard]] TreeFacts factsAt(const Location& location);
    /// Whether something below an item, or the lack of it, is that of the disk's folder.
    [[nodiscard]] bool isAsOnDisk(const Location& item, std::string_view below);
    /// The path of the item on the disk, for system calls; empty for one that the script has made.
    [[nodiscard]] std::string placeOnDisk(const Location& item);
    /// The names in a folder, sorted.
    [[nodiscard]] std::vector<std::string> namesIn(const Location& folder);
    /// Calls for an item and all below it, items before what is in them, names in their order;
    /// stops when it gives false.
    void walk(const Location& top,
              const std::function<bool(const Location&, const ItemState&)>& visit);
    /// Whether two items are on one volume. Doubts for volumes that do not keep what they are told.
    [[nodiscard]] bool areOnOneVolume(const Location& item, const Location& other);
    [[nodiscard]] const Volume* volumeOf(const Location& item);
    void doubtVolume(const Location& item);
    /// Whether what is made in a folder gets an access control list from it.
    [[nodiscard]] bool handsDownAccess(const Location& folder);

    // Functions that change items. The folders of all locations are there.

    void setState(const Location& location, const ItemState& state);
    void noteDates(const Location& location);
    void remove(const Location& location);
    void move(const Location& from, const Location& to, bool isCopy);
    void copy(const Location& from, const Location& to);
    void make(const Location& location, const ItemState& state);
    /// Makes the item and all below it uncertain from now on; the root stands for all files.
    void makeUncertain(const Location& location);
    /// Keeps what both agree on; the rest is uncertain.
    void joinWith(SimulatedFiles& other);

private:
    using Pointer = SimulatedItem::Pointer;
    /// An item, and what it has from the folders above it.
    struct Found {
        Pointer item;
        std::uint64_t mount = 0;
        bool isCopy = false;
        bool isUncertain = false;
    };
    /// The change of a file with several names.
    struct Changed {
        ItemState state;
        std::size_t step = 0;
    };
    using ChangedFiles = std::map<std::pair<dev_t, ino_t>, Changed>;

    friend class SimulatedResolver;
    [[nodiscard]] Found find(const Location& location);
    [[nodiscard]] Pointer childOf(SimulatedItem& folder, const std::string& name);
    [[nodiscard]] ItemState stateOf(const Found& found);
    void noteDoubtsOf(const Found& found, const Location& location);
    [[nodiscard]] SimulatedItem& writable(const Location& location);
    Pointer& slotOf(const Location& location);
    void gatherFacts(const Location& top);

    std::shared_ptr<SimulatedDisk> disk_;
    Pointer root_;
    std::shared_ptr<ChangedFiles> originals_; ///< of the disk
    std::shared_ptr<ChangedFiles> copies_;    ///< of copies, by what they are copies of
    std::size_t step_ = 0;
    std::size_t joins_ = 0; ///< the number of joins that this is the result of
    std::string doubt_;
    bool isAstray_ = false;
};

} // namespace qv
