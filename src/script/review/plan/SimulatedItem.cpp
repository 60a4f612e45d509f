#include "script/review/plan/SimulatedItem.h"

#include "platform/foundation/files/item/HeldItem.h"
#include "platform/foundation/files/item/ItemRecord.h"

#include <fmt/core.h>

#include <cerrno>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

namespace qv {

namespace {

constexpr std::size_t kMostItemsRead = 2'000'000;
constexpr std::size_t kMostItemsSeen = 50'000'000;
constexpr mode_t kPermissions = 07777;

SimulatedItem::Pointer unknownItem(const std::string& path, std::string_view why) {
    auto item = std::make_shared<SimulatedItem>();
    item->state.type = ItemState::Type::unknown;
    item->doubt = fmt::format("{} {}", path.empty() ? "/" : path, why);
    return item;
}

ItemState::Type typeOf(mode_t mode) {
    using enum ItemState::Type;
    return S_ISREG(mode) ? file : S_ISDIR(mode) ? folder : S_ISLNK(mode) ? link : other;
}

} // namespace

SimulatedItem::~SimulatedItem() {
    std::vector<Pointer> doomed;
    const auto collect = [&](Children& from) {
        for (auto& [name, child] : from) {
            if (child != nullptr && child.use_count() == 1 && !child->children.empty()) {
                doomed.push_back(std::move(child));
            }
        }
    };
    collect(children);
    while (!doomed.empty()) {
        const Pointer last = std::move(doomed.back());
        doomed.pop_back();
        collect(last->children);
    }
}

SimulatedItem::Pointer SimulatedDisk::itemFor(int parent, const char* name, std::string origin) {
    if (++read_ > kMostItemsRead) {
        return unknownItem(origin, "is one of more items than a plan looks at");
    }
    const tl::expected<ItemRecord, int> record = recordOf(parent, name);
    if (!record) {
        return record.error() == ENOENT ? nullptr
                                        : unknownItem(origin, "cannot be examined by this user");
    }
    auto item = std::make_shared<SimulatedItem>();
    item->state = {typeOf(record->mode), record->user, record->group, record->mode & kPermissions,
                   record->target};
    item->modified = record->modified;
    if (!item->isFolder() && record->names > 1) {
        item->hardLinked = record->identity;
    }
    if (record->isMountPoint || origin.empty()) {
        item->mount = record->mountID;
        const tl::expected<Descriptor, int> held =
            holdItem(origin.empty() ? placeOf("/") : placeOf(origin), LastLink::keep);
        if (const auto volume = held ? volumeOf(held->get()) : std::nullopt) {
            volumes_.insert_or_assign(record->mountID, *volume);
        }
    }
    if (record->isProtected) {
        item->doubt = fmt::format("{} is protected against changes", origin);
    } else if (!record->isPlainLink) {
        item->doubt = fmt::format("{} is a link whose text does not say where it leads", origin);
    }
    item->origin = std::move(origin);
    return item;
}

SimulatedItem::Pointer SimulatedDisk::read(const std::string& path) {
    const tl::expected<Descriptor, int> held =
        holdItem(path.empty() ? placeOf("/") : placeOf(path), LastLink::keep);
    if (held) {
        return itemFor(held->get(), "", path);
    }
    return held.error() == ENOENT ? nullptr : unknownItem(path, "cannot be examined by this user");
}

void SimulatedDisk::list(SimulatedItem& folder) {
    if (folder.isListed || !folder.origin) {
        return;
    }
    folder.isListed = true;
    const std::string& path = *folder.origin;
    const std::string place = path.empty() ? placeOf("/") : placeOf(path);
    const tl::expected<Descriptor, int> held = holdItem(place, LastLink::keep);
    Descriptor open(held ? ::openat(held->get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC) : -1);
    DIR* entries = open ? ::fdopendir(open.get()) : nullptr;
    if (entries == nullptr) {
        folder.doubt = fmt::format("{} cannot be read by this user", path);
        return;
    }
    static_cast<void>(open.release());
    const std::unique_ptr<DIR, int (*)(DIR*)> closed(entries, ::closedir);
    while (const dirent* entry = ::readdir(entries)) {
        const char* name = &entry->d_name[0];
        if (std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0) {
            continue;
        }
        const auto [child, isNew] = folder.children.try_emplace(name);
        if (isNew) {
            child->second = itemFor(::dirfd(entries), name, fmt::format("{}/{}", path, name));
        }
    }
}

bool SimulatedDisk::handsDownAccess(const SimulatedItem& folder) {
    if (!folder.origin) {
        return false;
    }
    const auto [known, isNew] = handsDown_.try_emplace(*folder.origin, true);
    if (isNew) {
        const tl::expected<Descriptor, int> held =
            holdItem(placeOf(folder.origin->empty() ? "/" : *folder.origin), LastLink::keep);
        known->second = !held || qv::handsDownAccess(held->get());
    }
    return known->second;
}

const Volume* SimulatedDisk::volume(std::uint64_t mount) const {
    const auto found = volumes_.find(mount);
    return found == volumes_.end() ? nullptr : &found->second;
}

bool SimulatedDisk::spend(std::size_t items) {
    spent_ += items;
    return spent_ <= kMostItemsSeen;
}

} // namespace qv
