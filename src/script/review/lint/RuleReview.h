#pragma once

#include "rules/CallScanner.h"
#include "script/review/lint/Checks.h"

#include <memory>
#include <unordered_map>
#include <vector>

namespace qv {
class QVRuleChecker;
} // namespace qv

namespace qv::review {

/// A mistake in the text of a rule.
struct RuleFault {
    Check check;
    std::size_t offset; ///< in the rule, in bytes
    Explanation explanation;
};

/// A call as it stands in a rule.
struct PlacedCall {
    RuleCall call;
    std::size_t offset; ///< of its "${"
    std::size_t length; ///< with its "}"
};

/// The facts that a rule's text shows, without asking the machine.
struct RuleReading {
    std::vector<RuleFault> faults;
    bool asksForLastError = false;
};

/// Reads rules. Remembers what it has read, since scripts repeat their rules.
class RuleReview {
public:
    RuleReview();
    RuleReview(const RuleReview&) = delete;
    RuleReview& operator=(const RuleReview&) = delete;
    RuleReview(RuleReview&&) = delete;
    RuleReview& operator=(RuleReview&&) = delete;
    ~RuleReview();

    /// The rule's text outlives this.
    const RuleReading& read(std::string_view rule);

private:
    [[nodiscard]] RuleReading readingOf(std::string_view rule) const;

    std::unique_ptr<QVRuleChecker> checker_; // knows the names of functions; nothing is evaluated
    std::unordered_map<std::string_view, RuleReading> readings_;
};

/// The mistakes in a call.
void reviewCall(const PlacedCall& call, std::string_view rule, const QVRuleChecker& checker,
                std::vector<RuleFault>& faults);

/// The fault of the question that a function gets as a word, also behind the prefix of a key path;
/// none if it understands it, or may.
[[nodiscard]] std::optional<Explanation> faultOfQuestion(std::string_view function,
                                                         std::string_view question);

} // namespace qv::review
