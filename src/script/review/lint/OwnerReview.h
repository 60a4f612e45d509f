#pragma once

#include "script/KeyValueStorage.h"
#include "script/review/lint/BlockReview.h"

#include <string>
#include <vector>

namespace qv::review {

/// Follows the owners that steps save and apply.
class OwnerReview {
public:
    OwnerReview(const BlockReview& blocks, Findings& findings)
        : blocks_(blocks), findings_(findings) {}
    void take(const ReviewedStep& step);

private:
    /// An owner that has been saved and not been applied.
    struct Saved {
        Value identifier;
        std::size_t step;
        Branch branch;
    };

    void save(const ReviewedStep& step, const Value& identifier);
    void apply(const ReviewedStep& step, const Field& field, const Value& identifier);
    void replaceStorage(const ReviewedStep& step, const Value* storage);

    const BlockReview& blocks_;
    Findings& findings_;
    KeyValueStorage storage_; // all that any branch may have saved
    KeyValueStorage unused_;  // identifiers of `saved_` that have not been applied
    std::vector<Saved> saved_;
};

} // namespace qv::review
