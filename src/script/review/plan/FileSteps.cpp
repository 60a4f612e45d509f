#include "script/review/plan/FileSteps.h"

#include "platform/foundation/files/item/FileSystemPath.h"
#include "script/review/plan/SimulatedResolver.h"

#include <fmt/core.h>

#include <algorithm>
#include <cerrno>
#include <sys/stat.h>

namespace qv {

namespace {

constexpr std::uint32_t kLeftAlone = 0xFFFFFFFF; // chown(2)
constexpr mode_t kServicesMask = S_IWGRP | S_IWOTH;
constexpr mode_t kEverybodysFile = 0666;

bool isFolderState(const std::optional<ItemState>& state) {
    return state && state->type == ItemState::Type::folder;
}

bool isBelow(const Location& item, const Location& folder) {
    return item.size() >= folder.size() && std::equal(folder.begin(), folder.end(), item.begin());
}

Location parentOf(const Location& item) { return {item.begin(), item.end() - 1}; }

} // namespace

void EffectList::add(PlannedEffect effect) {
    ++count_;
    if (!isFull()) {
        effects_.push_back(std::move(effect));
    }
}

void EffectList::rename(const std::string& path, const std::string& known) {
    for (PlannedEffect& effect : effects_) {
        if (effect.path == path) {
            effect.path = known;
        }
    }
}

PlannedItem::PlannedItem(SimulatedFiles& files, std::optional<URL> url)
    : files_(&files), url_(std::move(url)), path_(fileSystemPath(url_)) {}

PlannedItem::PlannedItem(SimulatedFiles& files, URL url, Location place)
    : files_(&files), url_(std::move(url)), path_(fileSystemPath(url_)), place_(std::move(place)) {}

const tl::expected<Location, int>& PlannedItem::place() {
    if (!place_) {
        place_ = path_ ? files_->placeOf(*path_) : tl::unexpected(EINVAL);
    }
    return *place_;
}

tl::expected<Location, Error> PlannedItem::hold(LastLink last) {
    if (!path_) {
        return tl::unexpected(path_.error());
    }
    auto held = place_ && *place_ ? files_->holdPlace(**place_, last) : files_->hold(*path_, last);
    return std::move(held).map_error([](int errorNumber) { return Error::posix(errorNumber); });
}

void FileSteps::makeItem(const Location& location, ItemState state) {
    const std::optional<ItemState> folder = files_.stateAt(parentOf(location));
    state.group = folder && (folder->mode & S_ISGID) != 0 ? folder->group : 0;
    files_.make(location, state);
    effects_.add({pathOf(location), std::nullopt, state, ""});
}

void FileSteps::showTree(const Location& top, bool isMade, const std::string& note) {
    const std::size_t items = files_.factsAt(top).items;
    std::size_t shown = 0;
    files_.walk(top, [&](const Location& item, const ItemState& state) {
        if (effects_.isFull()) {
            return false;
        }
        ++shown;
        effects_.add({pathOf(item), isMade ? std::nullopt : std::optional(state),
                      isMade ? std::optional(state) : std::nullopt, note});
        return true;
    });
    effects_.addHidden(items - std::min(items, shown));
}

Error FileSteps::removeItem(PlannedItem& item) {
    const auto failed = [&](int fault) {
        return fileError({fault, FileAccess::write, *item.path(), ""}, "Remove");
    };
    if (!item.path() || !item.place()) {
        return item.path() ? failed(item.place().error()) : item.path().error();
    }
    if (!files_.exists(*item.place())) {
        return failed(ENOENT);
    }
    showTree(*item.place(), false, "");
    files_.remove(*item.place());
    return {};
}

Error FileSteps::remove(PlannedItem item) { return removeItem(item); }

Error FileSteps::adapt(PlannedItem& from, PlannedItem& to) {
    const bool isFromAstray = from.isLedAstray(); // both are looked for
    const bool isToAstray = to.isLedAstray();
    const bool isRefused = isFromAstray || isToAstray;
    if (isRefused) {
        return {};
    }
    std::uint32_t user = 0;
    std::uint32_t group = 0;
    if (to.place()) {
        const std::optional<ItemState> folder = files_.stateAt(parentOf(*to.place()));
        user = folder ? folder->user : 0;
        group = folder ? folder->group : 0;
    } else if (Error error = readOwner(
                   PlannedItem(files_, to.url()->URLByDeletingLastPathComponent()), user, group)) {
        return error;
    }
    // Only the place that was found is used further on.
    return changeOwner(from, user, group, true);
}

Error FileSteps::moveItem(PlannedItem& from, PlannedItem& to) {
    const auto failed = [&](int fault, FileAccess access = FileAccess::write) {
        return fileError({fault, access, *from.path(), *to.path()}, "Move");
    };
    for (PlannedItem* item : {&from, &to}) {
        if (!item->path()) {
            return item->path().error();
        }
    }
    for (PlannedItem* item : {&from, &to}) {
        if (!item->place()) {
            return failed(item->place().error());
        }
    }
    const Location& source = *from.place();
    const Location& target = *to.place();
    if (files_.exists(target)) {
        return failed(EEXIST);
    }
    const bool isRename = files_.areOnOneVolume(parentOf(source), parentOf(target));
    const SimulatedItem* item = files_.itemAt(source);
    if (item == nullptr) {
        return failed(ENOENT, isRename ? FileAccess::write : FileAccess::read);
    }
    if (item->isFolder() && isBelow(target, source)) {
        return failed(EINVAL);
    }
    if (item->mount) {
        files_.noteDoubt(fmt::format("something is mounted at {}", pathOf(source)));
    }
    if (!isRename && files_.factsAt(source).hasSpecialFiles) {
        files_.noteDoubt(fmt::format("{} holds devices, FIFOs or sockets", pathOf(source)));
    }
    const ItemState state = *files_.stateAt(source);
    effects_.add({pathOf(source), state, std::nullopt, "moved to " + pathOf(target)});
    effects_.add({pathOf(target), std::nullopt, state, "moved from " + pathOf(source)});
    files_.move(source, target, !isRename);
    return {};
}

Error FileSteps::move(PlannedItem from, PlannedItem to, bool adaptOwnership) {
    const Error error = adaptOwnership ? adapt(from, to) : Error();
    return error ? error : moveItem(from, to);
}

Error FileSteps::copyItem(PlannedItem& from, PlannedItem& to) {
    const auto failed = [&](int fault, FileAccess access) {
        return fileError({fault, access, *from.path(), *to.path()}, "Copy");
    };
    for (PlannedItem* item : {&from, &to}) {
        if (!item->path()) {
            return item->path().error();
        }
    }
    if (!from.place()) {
        return failed(from.place().error(), FileAccess::read);
    }
    if (!to.place()) {
        return failed(to.place().error(), FileAccess::write);
    }
    const Location& source = *from.place();
    const Location& target = *to.place();
    const std::optional<ItemState> state = files_.stateAt(source);
    if (!state) {
        return failed(ENOENT, FileAccess::read);
    }
    if (files_.exists(target)) {
        return failed(EEXIST, FileAccess::write);
    }
    if (isFolderState(state) && isBelow(parentOf(target), source)) {
        return failed(EINVAL, FileAccess::write);
    }
    if (files_.factsAt(source).hasSpecialFiles) {
        files_.noteDoubt(fmt::format("{} holds devices, FIFOs or sockets", pathOf(source)));
    }
    files_.copy(source, target);
    showTree(target, true, "");
    return {};
}

Error FileSteps::copyAtomically(PlannedItem& from, PlannedItem& to) {
    const std::string name = fmt::format("._A_{}", to.url()->lastPathComponent());
    const URL url = to.url()->URLByDeletingLastPathComponent().URLByAppendingPathComponent(name);
    PlannedItem temporary(files_, url);
    if (to.place()) {
        Location beside = *to.place();
        beside.back() = name;
        constexpr std::size_t kLongestName = 255;
        if (name.size() > kLongestName || name.find('/') != std::string::npos) {
            files_.noteDoubt("the name of the temporary copy cannot be used");
        }
        temporary = PlannedItem(files_, url, std::move(beside));
    }
    EffectList unseen(0);
    FileSteps hidden(files_, unseen, home_);
    if (Error error = hidden.copyItem(from, temporary)) {
        static_cast<void>(removeItem(temporary));
        return error;
    }
    if (Error error = hidden.moveItem(temporary, to)) {
        if (temporary.place()) {
            showTree(*temporary.place(), true, "stays");
        }
        return error;
    }
    showTree(*to.place(), true, "");
    return {};
}

Error FileSteps::copy(PlannedItem from, PlannedItem to, bool adaptOwnership, bool atomic) {
    if (Error error = adaptOwnership ? adapt(from, to) : Error()) {
        return error;
    }
    return atomic ? copyAtomically(from, to) : copyItem(from, to);
}

Error FileSteps::touch(PlannedItem item) {
    static_cast<void>(item.place());
    tl::expected<Location, Error> held = item.hold(LastLink::follow);
    if (!held && held.error() == Error::posix(ENOENT) && item.place()) {
        const Location& place = *item.place();
        if (files_.handsDownAccess(parentOf(place))) {
            files_.noteDoubt(fmt::format("{} may give an access control list to what is made in it",
                                         pathOf(parentOf(place))));
        }
        if (const std::optional<ItemState> link = files_.stateAt(place)) {
            effects_.add({pathOf(place), link, std::nullopt, ""});
            files_.remove(place);
        }
        makeItem(place, {ItemState::Type::file, 0, 0, kEverybodysFile & ~kServicesMask, ""});
        return {};
    }
    if (!held) {
        return held.error();
    }
    files_.noteDates(*held);
    effects_.add({pathOf(*held), std::nullopt, std::nullopt, "dates"});
    return {};
}

Error FileSteps::readOwner(PlannedItem item, std::uint32_t& user, std::uint32_t& group) {
    const tl::expected<Location, Error> held = item.hold(LastLink::follow);
    const std::optional<ItemState> state = held ? files_.stateAt(*held) : std::nullopt;
    if (!state) {
        return held ? Error::posix(ENOENT) : held.error();
    }
    user = state->user;
    group = state->group;
    return {};
}

void FileSteps::applyTo(const Location& location, const Change& change) {
    const std::optional<ItemState> before = files_.stateAt(location);
    if (!before) {
        return;
    }
    if (const std::string& doubt = files_.itemAt(location)->doubt; !doubt.empty()) {
        files_.noteDoubt(doubt);
    }
    const ItemState after = change(*before);
    if (after != *before) {
        files_.setState(location, after);
        effects_.add({pathOf(location), before, after, ""});
    }
}

Error FileSteps::changeItem(PlannedItem& item, const Change& change, bool recursive,
                            bool isOfOwner) {
    const tl::expected<Location, Error> held = item.hold(LastLink::follow);
    if (!held) {
        return held.error();
    }
    files_.doubtVolume(*held); // a change that changes nothing may fail there
    applyTo(*held, change);
    if (!recursive || !isFolderState(files_.stateAt(*held))) {
        return {};
    }
    files_.walk(*held, [&](const Location& each, const ItemState& state) {
        if (each.size() == held->size()) {
            return true;
        }
        if (state.type != ItemState::Type::link) {
            applyTo(each, change);
            return true;
        }
        SimulatedResolver resolver(files_);
        const auto target = resolver.step(parentOf(each), each.back());
        // The target of such a chain may depend on items that have got their new owner already.
        if (isOfOwner && resolver.hasUsersLink() && resolver.links() > 1) {
            files_.noteDoubt(fmt::format("{} leads over links of users", pathOf(each)));
        }
        if (target) {
            applyTo(*target, change);
        }
        return true;
    });
    return {};
}

Error FileSteps::changeOwner(PlannedItem item, std::uint32_t user, std::uint32_t group,
                             bool recursive) {
    const auto change = [&](ItemState state) {
        const std::uint32_t newUser = user == kLeftAlone ? state.user : user;
        const std::uint32_t newGroup = group == kLeftAlone ? state.group : group;
        const bool isSo = newUser == state.user && newGroup == state.group;
        if (!isSo && state.type != ItemState::Type::folder) {
            const bool losesGroup = (state.mode & S_IXGRP) != 0; // the kernel's rule
            state.mode &= ~static_cast<mode_t>(S_ISUID | (losesGroup ? S_ISGID : 0));
        }
        state.user = newUser;
        state.group = newGroup;
        return state;
    };
    return changeItem(item, change, recursive, true);
}

Error FileSteps::changeMode(PlannedItem item, mode_t mode, bool recursive) {
    const auto change = [&](ItemState state) {
        state.mode = mode & 07777;
        return state;
    };
    return changeItem(item, change, recursive, false);
}

} // namespace qv
