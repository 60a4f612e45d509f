#pragma once

#include "script/review/lint/BlockReview.h"

#include <cstdint>
#include <map>
#include <string>
#include <unordered_map>

namespace qv::review {

/// Follows what the steps of a script do to items, by the texts of their paths. A program that a
/// step runs may do anything, so nothing is known of items behind it; a change in a branch is known
/// in that branch only, and a fact that a branch may have undone is not known behind it.
class ItemReview {
public:
    ItemReview(const BlockReview& blocks, Findings& findings)
        : blocks_(blocks), findings_(findings) {}
    void take(const ReviewedStep& step);

private:
    /// A fact that holds since a step.
    struct Fact {
        std::size_t step = 0;
        Branch branch;
        std::size_t epoch = 0;
        bool holds = false;
    };
    struct Change : Fact {
        bool recursive = false;
        bool setsUserID = false;
    };
    /// The history of one path. Steps count from 1; 0: never.
    struct Item {
        Fact gone;
        Fact made;
        std::size_t lastGone = 0;
        std::size_t lastMade = 0;
        std::size_t lastUsed = 0; ///< with all that is in it
        std::size_t lastUsedBelow = 0;
    };
    struct TextHash {
        using is_transparent = void;
        std::size_t operator()(std::string_view text) const noexcept {
            return std::hash<std::string_view>()(text);
        }
    };
    using Changes = std::map<std::string, Change, std::less<>>;

    [[nodiscard]] bool isValid(const Fact& fact) const noexcept {
        return fact.holds && fact.epoch == epoch_ && blocks_.isInside(fact.branch);
    }
    [[nodiscard]] Fact factOf(const ReviewedStep& step) const {
        return {step.index, blocks_.branch(), epoch_, true};
    }

    void takeTwoItems(const ReviewedStep& step);
    void takeTool(const ReviewedStep& step);
    void takeChange(const ReviewedStep& step, const Field& item);
    void needs(const ReviewedStep& step, const Field& field, std::string_view path);
    void uses(const ReviewedStep& step, const std::string& path);
    void makes(const ReviewedStep& step, const std::string& path);
    void takesAway(const ReviewedStep& step, const std::string& path);
    void needsFreePlace(const ReviewedStep& step, const Field& field, const std::string& path);
    void reviewNesting(const ReviewedStep& step, const Field& from, const std::string& fromPath,
                       const Field& to, const std::string& toPath);
    void reviewEarlier(const ReviewedStep& step, const Field& item, const std::string& path,
                       Changes& changes, bool recursive);
    void reviewSetID(const ReviewedStep& step, const Field& item, const std::string& path,
                     bool recursive);
    [[nodiscard]] bool isUntouched(std::string_view path, const Change& change) const;
    void forget() noexcept { ++epoch_; }

    const BlockReview& blocks_;
    Findings& findings_;
    std::unordered_map<std::string, Item, TextHash, std::equal_to<>> items_;
    Changes modes_;
    Changes owners_;
    std::size_t epoch_ = 0;
    bool opaqueBefore_ = false; ///< a program has run, which may have installed tools
};

} // namespace qv::review
