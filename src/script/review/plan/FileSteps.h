#pragma once

#include "platform/foundation/files/item/FileErrors.h"
#include "platform/foundation/values/Error.h"
#include "platform/foundation/values/URL.h"
#include "script/review/plan/SimulatedFiles.h"

#include <cerrno>
#include <optional>
#include <string>
#include <string_view>

namespace qv {

/// Collects what a step does.
class EffectList {
public:
    explicit EffectList(std::size_t most) : most_(most) {}
    void add(PlannedEffect effect);
    /// Counts items that are not shown.
    void addHidden(std::size_t items) { count_ += items; }
    /// Shows an item under the name that the script knows.
    void rename(const std::string& path, const std::string& known);
    [[nodiscard]] bool isFull() const noexcept { return effects_.size() >= most_; }
    [[nodiscard]] std::size_t count() const noexcept { return count_; }
    [[nodiscard]] std::vector<PlannedEffect> take() { return std::move(effects_); }

private:
    std::size_t most_;
    std::size_t count_ = 0;
    std::vector<PlannedEffect> effects_;
};

/// An item as a step names it: see files/NamedItem.h, of which this is the simulated counterpart.
class PlannedItem {
public:
    PlannedItem(SimulatedFiles& files, std::optional<URL> url);
    PlannedItem(SimulatedFiles& files, URL url, Location place);

    [[nodiscard]] const std::optional<URL>& url() const noexcept { return url_; }
    [[nodiscard]] const tl::expected<std::string, Error>& path() const noexcept { return path_; }
    [[nodiscard]] const tl::expected<Location, int>& place();
    [[nodiscard]] tl::expected<Location, Error> hold(LastLink last);
    [[nodiscard]] bool isLedAstray() { return !place() && place().error() == ELOOP; }

private:
    SimulatedFiles* files_;
    std::optional<URL> url_;
    tl::expected<std::string, Error> path_;
    std::optional<tl::expected<Location, int>> place_;
};

/// The file operations of a script on simulated files. Each gives the error that the operation
/// would give.
class FileSteps {
public:
    /// `home` is root's, with its trash.
    FileSteps(SimulatedFiles& files, EffectList& effects, const std::string& home)
        : files_(files), effects_(effects), home_(home) {}

    Error remove(PlannedItem item);
    Error trash(PlannedItem item);
    Error move(PlannedItem from, PlannedItem to, bool adaptOwnership);
    Error copy(PlannedItem from, PlannedItem to, bool adaptOwnership, bool atomic);
    Error replace(const URL& url, const URL& withItem);
    Error touch(PlannedItem item);
    Error readOwner(PlannedItem item, std::uint32_t& user, std::uint32_t& group);
    Error changeOwner(PlannedItem item, std::uint32_t user, std::uint32_t group, bool recursive);
    Error changeMode(PlannedItem item, mode_t mode, bool recursive);

private:
    using Change = std::function<ItemState(ItemState)>;

    Error adapt(PlannedItem& from, PlannedItem& to);
    Error moveItem(PlannedItem& from, PlannedItem& to);
    Error copyItem(PlannedItem& from, PlannedItem& to);
    Error removeItem(PlannedItem& item);
    Error copyAtomically(PlannedItem& from, PlannedItem& to);
    Error changeItem(PlannedItem& item, const Change& change, bool recursive, bool isOfOwner);
    void applyTo(const Location& location, const Change& change);
    void makeItem(const Location& location, ItemState state);
    void showTree(const Location& top, bool isMade, const std::string& note);
    [[nodiscard]] std::optional<PlannedItem> freeArchive(PlannedItem& item);
    [[nodiscard]] std::optional<std::string> archiveTag(const Location& item);
    [[nodiscard]] std::optional<std::string> versionOf(const std::string& place);
    [[nodiscard]] std::optional<Location> trashOf(const Location& item, int& fault);
    [[nodiscard]] std::optional<Location> ownFolder(const Location& parent, const std::string& name,
                                                    bool isRoots);
    [[nodiscard]] bool hasHomeTrash();

    SimulatedFiles& files_;
    EffectList& effects_;
    const std::string& home_;
};

} // namespace qv
