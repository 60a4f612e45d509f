#pragma once

#include "platform/foundation/values/Error.h"
#include "platform/foundation/values/Value.h"
#include "script/review/Finding.h"

#include <cstdint>
#include <string_view>
#include <vector>

namespace qv {

/// The domain and code of the error of a script that has a mistake, and the keys of what its
/// `userInfo` holds beside the description.
inline constexpr std::string_view kScriptReviewErrorDomain = "QVCatalogScriptReviewErrorDomain";
inline constexpr std::int64_t kScriptReviewErrorMistake = 1;
inline constexpr std::string_view kScriptReviewStepIndexKey =
    "stepIndex"; ///< a number; may be missing
inline constexpr std::string_view kScriptReviewRuleKey = "rule";
inline constexpr std::string_view kScriptReviewReasonKey = "reason";
inline constexpr std::string_view kScriptReviewMendKey = "mend";

/// Looks for mistakes in a recorded script before it is sent: what would pass silently, or fail for
/// certain. Looks at nothing but the steps, which may be any value.
class QVCatalogScriptReview {
public:
    /// All mistakes, in the order of the steps.
    [[nodiscard]] static std::vector<Finding> review(const Value& steps);
    /// The first mistake of severity `error`, with the text of its reason; empty if there is none.
    [[nodiscard]] static Error errorOfReview(const Value& steps);
};

} // namespace qv
