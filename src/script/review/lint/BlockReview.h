#pragma once

#include "script/review/lint/RuleReview.h"

#include <cstdint>
#include <vector>

namespace qv::review {

/// The branch of a block in which a step stands: a number of its own, and a depth.
struct Branch {
    std::uint32_t number = 0; ///< 0 outside of all blocks
    std::size_t depth = 0;
};

/// Follows the blocks of a script and the error behaviour in them, step by step.
class BlockReview {
public:
    void take(const ReviewedStep& step, Findings& findings);
    void end(const LintOptions& options, Findings& findings);

    [[nodiscard]] Branch branch() const noexcept { return {openBranches_.back(), blocks_.size()}; }
    /// Whether all that is carried out from here on comes after a step of that branch.
    [[nodiscard]] bool isInside(const Branch& branch) const noexcept {
        return branch.depth < openBranches_.size() && openBranches_[branch.depth] == branch.number;
    }
    /// Whether a step that has been passed has been carried out with success for certain.
    [[nodiscard]] bool stopsAtErrors() const noexcept {
        return behaviour_.value == std::optional<std::int32_t>(0);
    }

private:
    /// The behaviour; none if it depends on the branches that were taken.
    struct Behaviour {
        std::optional<std::int32_t> value = 0;
        std::optional<std::size_t> step; ///< the step that has set it
    };
    struct Block {
        std::size_t step; ///< of the if
        bool hasElse = false;
        std::size_t steps = 0; ///< in it
        Behaviour before;
        Behaviour afterFirst; ///< at the else
    };

    void beginIf(const ReviewedStep& step, Findings& findings);
    void beginElse(const ReviewedStep& step, Findings& findings);
    void endIf(const ReviewedStep& step, Findings& findings);
    void reviewRule(const ReviewedStep& step, const Field& field, Findings& findings);
    void reviewLastError(const ReviewedStep& step, const Field& field, Findings& findings);

    RuleReview rules_;
    std::vector<Block> blocks_;
    std::vector<std::uint32_t> openBranches_ = {0}; // by depth
    std::uint32_t lastBranch_ = 0;
    Behaviour behaviour_;
    const Operation* previous_ = nullptr; // of the step before; null if that has none
};

} // namespace qv::review
