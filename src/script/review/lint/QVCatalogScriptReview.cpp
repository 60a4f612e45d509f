#include "script/review/QVCatalogScriptReview.h"

#include "script/review/lint/Lint.h"

#include <fmt/format.h>

#include <algorithm>

namespace qv {

std::vector<Finding> QVCatalogScriptReview::review(const Value& steps) {
    return lint(steps, {.asksMachine = false, .isRecorded = true});
}

Error QVCatalogScriptReview::errorOfReview(const Value& steps) {
    const std::vector<Finding> findings = review(steps);
    const auto found = std::ranges::find(findings, Finding::Severity::error, &Finding::severity);
    if (found == findings.end()) {
        return {};
    }
    std::string text = found->step ? fmt::format("Step {} of the script has a mistake: {}",
                                                 *found->step + 1, found->reason)
                                   : fmt::format("The script has a mistake: {}", found->reason);
    std::vector<std::pair<Value, Value>> info = {
        {Value::string(error_key::kLocalizedDescription), Value::string(text)},
        {Value::string(kScriptReviewRuleKey), Value::string(found->rule)},
        {Value::string(kScriptReviewReasonKey), Value::string(found->reason)},
        {Value::string(kScriptReviewMendKey), Value::string(found->mend)}};
    if (found->step) {
        info.emplace_back(Value::string(kScriptReviewStepIndexKey),
                          Value::unsignedInteger(*found->step));
    }
    return {kScriptReviewErrorDomain, kScriptReviewErrorMistake,
            Value::dictionary(std::move(info))};
}

} // namespace qv
