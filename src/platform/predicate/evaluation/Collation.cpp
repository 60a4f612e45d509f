#include "platform/foundation/text/Decomposition.h"
#include "platform/predicate/evaluation/Matching.h"
#include "platform/predicate/language/Reasons.h"

#include <fmt/core.h>
#include <unicode/coll.h>
#include <unicode/uiter.h>

#include <memory>

namespace qv::predicate {

namespace {

// A text that the collator reads one character after the other, and that ends when the time is
// over: marks that might combine with one another in many ways can take a collator very long.
struct BoundedText : UCharIterator {
    BoundedText(std::string_view text, const Budget& budget) : UCharIterator{}, budget_(budget) {
        ::uiter_setUTF8(this, text.data(), static_cast<std::int32_t>(text.size()));
        original_ = next;
        next = nextWithinTime;
    }

private:
    static UChar32 nextWithinTime(UCharIterator* iterator) {
        constexpr unsigned kReadsBetweenLooks = 1024;
        auto& self = *static_cast<BoundedText*>(iterator);
        self.over_ =
            self.over_ || (++self.reads_ % kReadsBetweenLooks == 0 && self.budget_.isOver());
        return self.over_ ? U_SENTINEL : self.original_(iterator);
    }

    const Budget& budget_;
    UCharIteratorNext* original_ = nullptr;
    unsigned reads_ = 0;
    bool over_ = false;
};

void requireOrder(UErrorCode status) {
    if (U_FAILURE(status) != 0) {
        raiseInvalidArgument(fmt::format("Can't order texts: {}", u_errorName(status)));
    }
}

std::unique_ptr<icu::Collator> collatorFor(Modifiers modifiers) {
    UErrorCode status = U_ZERO_ERROR;
    std::unique_ptr<icu::Collator> collator(
        icu::Collator::createInstance(icu::Locale::getRoot(), status));
    requireOrder(status);
    if (modifiers.diacriticInsensitive) {
        collator->setStrength(icu::Collator::PRIMARY);
        collator->setAttribute(UCOL_CASE_LEVEL, modifiers.caseInsensitive ? UCOL_OFF : UCOL_ON,
                               status);
    } else if (modifiers.caseInsensitive) {
        collator->setStrength(icu::Collator::SECONDARY);
    }
    requireOrder(status);
    return collator;
}

} // namespace

std::strong_ordering orderOfCollation(std::string_view left, std::string_view right,
                                      Modifiers modifiers, Budget& budget) {
    constexpr std::size_t kStepsOfMaking = 100;
    budget.charge(kStepsOfMaking);
    const std::unique_ptr<icu::Collator> collator = collatorFor(modifiers);
    const std::string leftText = canonicallyDecomposed(left);
    const std::string rightText = canonicallyDecomposed(right);
    BoundedText leftBounded(leftText, budget);
    BoundedText rightBounded(rightText, budget);
    UErrorCode status = U_ZERO_ERROR;
    const UCollationResult order = collator->compare(leftBounded, rightBounded, status);
    requireOrder(status);
    budget.requireTime();
    return static_cast<int>(order) <=> 0;
}

} // namespace qv::predicate
