#include "script/review/plan/SimulatedResolver.h"

#include <cerrno>
#include <climits>

namespace qv {

namespace {

constexpr int kMostLinks = 40;
constexpr int kMostSteps = 2000; // the kernel and the resolver count a longer path differently

} // namespace

tl::expected<Location, int> SimulatedResolver::follow(Location from, std::string_view path) {
    if (path.size() >= PATH_MAX) {
        return tl::unexpected(ENAMETOOLONG);
    }
    const bool wantsFolder = path.ends_with('/');
    if (path.starts_with('/')) {
        from.clear();
    }
    tl::expected<Location, int> here = std::move(from);
    while (here && !path.empty()) {
        const std::size_t end = std::min(path.find('/'), path.size());
        const std::string name(path.substr(0, end));
        path.remove_prefix(std::min(end + 1, path.size()));
        if (!name.empty()) {
            here = step(*here, name);
        }
    }
    if (here && wantsFolder) {
        const std::optional<ItemState> state = files_.stateAt(*here);
        if (!state || state->type != ItemState::Type::folder) {
            return tl::unexpected(ENOTDIR);
        }
    }
    return here;
}

tl::expected<Location, int> SimulatedResolver::step(const Location& folder,
                                                    const std::string& name) {
    using Type = ItemState::Type;
    if (++steps_ > kMostSteps) {
        files_.noteDoubt("a path has too many components");
    }
    const std::optional<ItemState> here = files_.stateAt(folder);
    if (!here || here->type != Type::folder) {
        if (here && here->type == Type::unknown) {
            files_.isAstray_ = true;
        }
        return tl::unexpected(here ? ENOTDIR : ENOENT);
    }
    if (files_.isAstray_ || !files_.doubt().empty()) {
        files_.isAstray_ = true; // the target of this is no more sure than the folder
    }
    if (name == ".") {
        return folder;
    }
    Location item = folder;
    if (name == "..") {
        if (!item.empty()) {
            item.pop_back();
        }
        const std::optional<ItemState> above = leader_ ? files_.stateAt(item) : std::nullopt;
        if (above && above->user != *leader_) {
            return tl::unexpected(ELOOP);
        }
        return item;
    }
    if (name.size() > NAME_MAX) {
        return tl::unexpected(ENAMETOOLONG);
    }
    item.push_back(name);
    const std::optional<ItemState> state = files_.stateAt(item);
    if (!state) {
        return tl::unexpected(ENOENT);
    }
    return state->type == Type::link ? followLink(folder, *state) : item;
}

tl::expected<Location, int> SimulatedResolver::followLink(const Location& folder,
                                                          const ItemState& link) {
    if (++links_ > kMostLinks) {
        return tl::unexpected(ELOOP);
    }
    if (!files_.doubt().empty()) {
        files_.isAstray_ = true;
    }
    leader_.reset();
    const tl::expected<Location, int> reached =
        link.target.empty() ? tl::unexpected(ENOENT) : follow(folder, link.target);
    if (link.user == 0) {
        return reached;
    }
    hasUsersLink_ = true;
    if (!reached && reached.error() != ENOENT && reached.error() != ENOTDIR) {
        leader_ = link.user;
        return reached;
    }
    const std::optional<ItemState> there = reached ? files_.stateAt(*reached) : std::nullopt;
    if (!there || there->user != link.user) {
        return tl::unexpected(ELOOP);
    }
    leader_ = link.user;
    return reached;
}

} // namespace qv
