#pragma once

#include "script/review/plan/SimulatedFiles.h"

namespace qv {

/// Follows one path through simulated files, by the rule for links of files/HeldItem.h as root.
class SimulatedResolver {
public:
    explicit SimulatedResolver(SimulatedFiles& files) : files_(files) {}

    /// Follows a path from a folder on. The error is an errno.
    tl::expected<Location, int> follow(Location from, std::string_view path);
    /// Resolves one component.
    tl::expected<Location, int> step(const Location& folder, const std::string& name);

    /// The number of links that were followed, and whether one of them is not root's.
    [[nodiscard]] int links() const noexcept { return links_; }
    [[nodiscard]] bool hasUsersLink() const noexcept { return hasUsersLink_; }

private:
    tl::expected<Location, int> followLink(const Location& folder, const ItemState& link);

    SimulatedFiles& files_;
    int links_ = 0;
    int steps_ = 0;
    bool hasUsersLink_ = false;
    std::optional<std::uint32_t> leader_; ///< the owner of the link that led here, unless root
};

} // namespace qv
