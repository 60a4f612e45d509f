#include "script/review/plan/SimulatedFiles.h"

#include "script/review/plan/SimulatedResolver.h"

#include <fmt/core.h>

#include <cassert>
#include <cerrno>
#include <climits>

namespace qv {

namespace {

constexpr std::string_view kTooMany = "there are more items than a plan looks at";

Location below(const Location& folder, std::string_view name) {
    Location item = folder;
    item.emplace_back(name);
    return item;
}

} // namespace

std::string pathOf(const Location& location) {
    std::string path;
    for (const std::string& name : location) {
        path.append("/").append(name);
    }
    return path.empty() ? "/" : path;
}

std::string earlierChangeOf(const std::string& path) {
    return "an earlier step may have changed " + (path == "/" ? "any file" : path);
}

SimulatedFiles::SimulatedFiles(std::shared_ptr<SimulatedDisk> disk)
    : disk_(std::move(disk)), root_(disk_->read("")), originals_(std::make_shared<ChangedFiles>()),
      copies_(std::make_shared<ChangedFiles>()) {
    if (root_ == nullptr) {
        root_ = std::make_shared<SimulatedItem>();
        root_->state.type = ItemState::Type::unknown;
    }
}

void SimulatedFiles::beginStep() {
    ++step_;
    doubt_.clear();
    isAstray_ = false;
}

void SimulatedFiles::noteDoubt(std::string reason) {
    if (doubt_.empty()) {
        doubt_ = std::move(reason);
    }
}

tl::expected<Location, int> SimulatedFiles::hold(const std::string& path, LastLink last) {
    SimulatedResolver resolver(*this);
    if (last == LastLink::follow || path.size() >= PATH_MAX) {
        return resolver.follow({}, path);
    }
    const std::size_t kept = path.rfind('/') + 1;
    tl::expected<Location, int> folder = resolver.follow({}, path.substr(0, kept));
    const std::string name = path.substr(kept);
    if (!folder || name.empty() || name == "." || name == "..") {
        return folder && !name.empty() ? resolver.step(*folder, name) : folder;
    }
    if (name.size() > NAME_MAX) {
        return tl::unexpected(ENAMETOOLONG);
    }
    return holdPlace(below(*folder, name), last);
}

tl::expected<Location, int> SimulatedFiles::holdPlace(const Location& place, LastLink last) {
    if (last == LastLink::follow) {
        return SimulatedResolver(*this).step(Location(place.begin(), place.end() - 1),
                                             place.back());
    }
    return exists(place) ? tl::expected<Location, int>(place) : tl::unexpected(ENOENT);
}

tl::expected<Location, int> SimulatedFiles::placeOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    const std::string name = path.substr(slash + 1);
    if (name.empty() || name == "." || name == "..") {
        return tl::unexpected(name.empty() ? EBUSY : EINVAL);
    }
    if (name.size() > NAME_MAX) {
        return tl::unexpected(ENAMETOOLONG);
    }
    return hold(path.substr(0, slash + 1), LastLink::follow).map([&](const Location& folder) {
        return below(folder, name);
    });
}

SimulatedItem::Pointer SimulatedFiles::childOf(SimulatedItem& folder, const std::string& name) {
    const auto known = folder.children.find(name);
    if (known != folder.children.end()) {
        return known->second;
    }
    if (folder.isListed || !folder.origin || !folder.isFolder()) {
        return nullptr;
    }
    return folder.children[name] = disk_->read(fmt::format("{}/{}", *folder.origin, name));
}

SimulatedFiles::Found SimulatedFiles::find(const Location& location) {
    Found found{root_, root_->mount.value_or(0), false, root_->isUncertain};
    for (const std::string& name : location) {
        Pointer child = childOf(*found.item, name);
        if (child == nullptr) {
            if (found.isUncertain) {
                noteDoubt(fmt::format("an earlier step may have made {}", pathOf(location)));
            }
            return {};
        }
        found.item = std::move(child);
        found.mount = found.item->mount.value_or(found.mount);
        found.isCopy = found.isCopy || found.item->isCopy;
        found.isUncertain = found.isUncertain || found.item->isUncertain;
    }
    return found;
}

ItemState SimulatedFiles::stateOf(const Found& found) {
    if (!found.item->hardLinked) {
        return found.item->state;
    }
    const std::pair key(found.item->hardLinked->device, found.item->hardLinked->inode);
    const ChangedFiles& changed = found.isCopy ? *copies_ : *originals_;
    const auto change = changed.find(key);
    if (change == changed.end()) {
        return found.item->state;
    }
    if (found.isCopy && change->second.step != step_) {
        noteDoubt("a file with several names was changed by one of them");
    }
    return found.isCopy ? found.item->state : change->second.state;
}

// Notes the doubts about an item for steps that only look at it.
void SimulatedFiles::noteDoubtsOf(const Found& found, const Location& location) {
    if (found.isUncertain) {
        noteDoubt(earlierChangeOf(pathOf(location)));
    } else if (!found.item->doubt.empty() &&
               (found.item->isLink() || found.item->state.type == ItemState::Type::unknown)) {
        noteDoubt(found.item->doubt);
    }
}

std::optional<ItemState> SimulatedFiles::stateAt(const Location& location) {
    const Found found = find(location);
    if (found.item == nullptr) {
        return std::nullopt;
    }
    noteDoubtsOf(found, location);
    return stateOf(found);
}

const SimulatedItem* SimulatedFiles::itemAt(const Location& location) {
    const Found found = find(location);
    if (found.item != nullptr) {
        noteDoubtsOf(found, location);
    }
    return found.item.get(); // the tree keeps it
}

bool SimulatedFiles::isAsOnDisk(const Location& item, std::string_view under) {
    Location place = item;
    for (std::size_t begin = 0; begin <= under.size();) {
        const std::size_t end = std::min(under.find('/', begin), under.size());
        place.emplace_back(under.substr(begin, end - begin));
        begin = end + 1;
    }
    const Pointer here = find(place).item;
    const std::optional<std::string>& origin = find(item).item->origin;
    if (!origin) {
        return here == nullptr;
    }
    const std::string path = fmt::format("{}/{}", *origin, under);
    return here == nullptr ? disk_->read(path) == nullptr : here->origin == path;
}

std::string SimulatedFiles::placeOnDisk(const Location& item) {
    const Found found = find(item);
    return found.item != nullptr && found.item->origin ? disk_->placeOf(*found.item->origin) : "";
}

std::vector<std::string> SimulatedFiles::namesIn(const Location& folder) {
    const Found found = find(folder);
    std::vector<std::string> names;
    if (found.item == nullptr || !found.item->isFolder()) {
        return names;
    }
    disk_->list(*found.item);
    if (!found.item->doubt.empty()) {
        noteDoubt(found.item->doubt);
    }
    for (const auto& [name, child] : found.item->children) {
        if (child != nullptr) {
            names.push_back(name);
        }
    }
    return names;
}

void SimulatedFiles::walk(const Location& top,
                          const std::function<bool(const Location&, const ItemState&)>& visit) {
    struct Level {
        std::vector<std::string> names;
        std::size_t next = 0;
    };
    std::vector<Level> levels;
    Location here = top;
    const auto enter = [&] {
        const std::optional<ItemState> state = stateAt(here);
        if (!state) {
            return true;
        }
        if (!disk_->spend()) {
            noteDoubt(std::string(kTooMany));
            return false;
        }
        if (!visit(here, *state)) {
            return false;
        }
        if (state->type == ItemState::Type::folder) {
            levels.push_back({namesIn(here)});
        }
        return true;
    };
    bool goesOn = enter();
    while (goesOn && !levels.empty()) {
        Level& level = levels.back();
        here.resize(top.size() + levels.size() - 1);
        if (level.next == level.names.size()) {
            levels.pop_back();
            continue;
        }
        here.push_back(level.names[level.next++]);
        goesOn = enter();
    }
}

TreeFacts SimulatedFiles::factsAt(const Location& location) {
    const Found found = find(location);
    if (found.item == nullptr) {
        return {};
    }
    noteDoubtsOf(found, location);
    if (!found.item->facts) {
        gatherFacts(location);
    }
    TreeFacts facts = *found.item->facts;
    if (found.isCopy && facts.hasHardLinks && !copies_->empty() && facts.doubt.empty()) {
        facts.doubt = "a copy holds files with several names";
    }
    if (!facts.doubt.empty()) {
        noteDoubt(facts.doubt);
    }
    return facts;
}

// Gathers the facts of one item and all below it.
void SimulatedFiles::gatherFacts(const Location& top) {
    TreeFacts facts;
    const auto doubt = [&](std::string reason) {
        if (facts.doubt.empty()) {
            facts.doubt = std::move(reason);
        }
    };
    std::vector<std::pair<Pointer, std::string>> open{{find(top).item, pathOf(top)}};
    while (!open.empty()) {
        const auto [item, path] = std::move(open.back());
        open.pop_back();
        ++facts.items;
        facts.hasLinks = facts.hasLinks || item->isLink();
        facts.hasSpecialFiles = facts.hasSpecialFiles || item->state.type == ItemState::Type::other;
        facts.hasHardLinks = facts.hasHardLinks || item->hardLinked.has_value();
        if (item->isFolder()) {
            disk_->list(*item);
        }
        if (!item->doubt.empty()) {
            doubt(item->doubt);
        } else if (item->mount) {
            doubt(fmt::format("something is mounted at {}", path));
        } else if (item->isUncertain) {
            doubt(earlierChangeOf(path));
        } else if (!disk_->spend()) {
            doubt(std::string(kTooMany));
            break;
        }
        for (const auto& [name, child] : item->children) {
            if (child != nullptr) {
                open.emplace_back(child, fmt::format("{}/{}", path == "/" ? "" : path, name));
            }
        }
    }
    find(top).item->facts = std::move(facts);
}

const Volume* SimulatedFiles::volumeOf(const Location& item) {
    const Found found = find(item);
    return found.item == nullptr ? nullptr : disk_->volume(found.mount);
}

void SimulatedFiles::doubtVolume(const Location& item) {
    const Volume* volume = volumeOf(item);
    if (volume == nullptr || !volume->keepsWhatItIsTold()) {
        noteDoubt(fmt::format("the volume of {} cannot be foreseen", pathOf(item)));
    }
}

bool SimulatedFiles::handsDownAccess(const Location& folder) {
    const Found found = find(folder);
    return found.item == nullptr || disk_->handsDownAccess(*found.item);
}

bool SimulatedFiles::areOnOneVolume(const Location& item, const Location& other) {
    doubtVolume(item);
    doubtVolume(other);
    return find(item).mount == find(other).mount;
}

} // namespace qv
