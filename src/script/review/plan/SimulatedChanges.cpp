#include "script/review/plan/SimulatedFiles.h"

#include <algorithm>
#include <set>

namespace qv {

namespace {

using Pointer = SimulatedItem::Pointer;

void ownPointer(Pointer& item) {
    if (item.use_count() > 1) {
        item = std::make_shared<SimulatedItem>(*item);
    }
}

template <typename Map> Map& ownMap(std::shared_ptr<Map>& map) {
    if (map.use_count() > 1) {
        map = std::make_shared<Map>(*map);
    }
    return *map;
}

Pointer unknownItem(const Location& location) {
    auto item = std::make_shared<SimulatedItem>();
    item->state.type = ItemState::Type::unknown;
    item->isUncertain = true;
    item->doubt = earlierChangeOf(pathOf(location));
    return item;
}

Location folderOf(const Location& location) { return {location.begin(), location.end() - 1}; }

// Whether two items differ in nothing but what is below them.
bool areAlike(const SimulatedItem& left, const SimulatedItem& right) {
    const auto seconds = [](const std::optional<timespec>& date) {
        return date ? std::pair(date->tv_sec, date->tv_nsec) : std::pair(time_t{-1}, 0L);
    };
    return left.state == right.state && left.origin == right.origin && left.doubt == right.doubt &&
           left.isCopy == right.isCopy && left.isUncertain == right.isUncertain &&
           seconds(left.modified) == seconds(right.modified);
}

} // namespace

// The pointer to an item, all above it being this tree's own. The folders must be there.
SimulatedItem::Pointer& SimulatedFiles::slotOf(const Location& location) {
    Pointer* slot = &root_;
    for (const std::string& name : location) {
        ownPointer(*slot);
        (*slot)->facts.reset();
        static_cast<void>(childOf(**slot, name));
        slot = &(*slot)->children[name];
    }
    return *slot;
}

SimulatedItem& SimulatedFiles::writable(const Location& location) {
    Pointer& slot = slotOf(location);
    ownPointer(slot);
    slot->facts.reset();
    return *slot;
}

void SimulatedFiles::setState(const Location& location, const ItemState& state) {
    doubtVolume(location);
    const Found found = find(location);
    if (!found.item->doubt.empty()) {
        noteDoubt(found.item->doubt);
    }
    if (found.item->hardLinked) {
        const std::pair key(found.item->hardLinked->device, found.item->hardLinked->inode);
        ownMap(found.isCopy ? copies_ : originals_)[key] = {state, step_};
    }
    writable(location).state = state;
}

void SimulatedFiles::noteDates(const Location& location) {
    doubtVolume(location);
    SimulatedItem& item = writable(location);
    item.modified.reset();
    if (!item.doubt.empty()) {
        noteDoubt(item.doubt);
    }
}

void SimulatedFiles::remove(const Location& location) {
    doubtVolume(location);
    noteDates(folderOf(location));
    slotOf(location) = nullptr;
}

void SimulatedFiles::move(const Location& from, const Location& to, bool isCopy) {
    const Found found = find(from);
    Pointer item = slotOf(from);
    remove(from);
    noteDates(folderOf(to));
    if ((found.isCopy || isCopy) && !item->isCopy) {
        ownPointer(item);
        item->isCopy = true;
    }
    slotOf(to) = std::move(item);
}

void SimulatedFiles::copy(const Location& from, const Location& to) {
    auto item = std::make_shared<SimulatedItem>(*find(from).item);
    if (item->hardLinked) { // by itself it is a file of one name
        item->state = stateOf(find(from));
        item->hardLinked.reset();
    } else if (factsAt(from).hasHardLinks && !originals_->empty()) {
        noteDoubt("a file with several names was changed by one of them");
    }
    item->isCopy = true;
    noteDates(folderOf(to));
    slotOf(to) = std::move(item);
}

void SimulatedFiles::make(const Location& location, const ItemState& state) {
    auto item = std::make_shared<SimulatedItem>();
    item->state = state;
    noteDates(folderOf(location));
    slotOf(location) = std::move(item);
}

void SimulatedFiles::makeUncertain(const Location& location) {
    Location known;
    for (const std::string& name : location) {
        const Pointer item = find(known).item;
        if (item == nullptr || !item->isFolder()) {
            break;
        }
        known.push_back(name);
    }
    Pointer& slot = slotOf(known);
    if (slot == nullptr) {
        slot = unknownItem(known);
    } else {
        ownPointer(slot);
        slot->isUncertain = true;
        slot->facts.reset();
    }
}

void SimulatedFiles::joinWith(SimulatedFiles& other) {
    const auto same = [](const ChangedFiles& left, const ChangedFiles& right) {
        return std::ranges::equal(left, right, [](const auto& one, const auto& two) {
            return one.first == two.first && one.second.state == two.second.state;
        });
    };
    if (!same(*originals_, *other.originals_) || !same(*copies_, *other.copies_)) {
        makeUncertain({});
        return;
    }
    if (other.joins_ > joins_) { // an uncertain item needs no comparison
        std::swap(root_, other.root_);
    }
    joins_ += other.joins_ + 1;
    std::vector<Location> open{{}};
    while (!open.empty()) {
        const Location here = std::move(open.back());
        open.pop_back();
        const Pointer left = find(here).item;
        const Pointer right = other.find(here).item;
        if (left == right) {
            continue;
        }
        if (left == nullptr || right == nullptr || !areAlike(*left, *right)) {
            makeUncertain(here);
            continue;
        }
        std::set<std::string> names; // of the items that are not the same object
        const auto isUnsure = [](const Pointer& child) {
            return child != nullptr && child->isUncertain;
        };
        for (const auto& [name, child] : left->children) {
            const auto counterpart = right->children.find(name);
            const bool isSame =
                counterpart != right->children.end() && counterpart->second == child;
            if (!isSame && !isUnsure(child)) {
                names.insert(name);
            }
        }
        for (const auto& [name, child] : right->children) {
            if (!left->children.contains(name)) {
                names.insert(name);
            }
        }
        for (const std::string& name : names) {
            open.push_back(here);
            open.back().push_back(name);
        }
    }
    step_ = std::max(step_, other.step_);
}

} // namespace qv
