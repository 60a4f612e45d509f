#include "platform/foundation/text/Collation.h"

#include <unicode/coll.h>
#include <unicode/locid.h>

#include <limits>
#include <memory>

namespace qv {

namespace {

std::unique_ptr<icu::Collator> makeCollator() {
    UErrorCode status = U_ZERO_ERROR;
    std::unique_ptr<icu::Collator> collator(
        icu::Collator::createInstance(icu::Locale::getRoot(), status));
    if (U_FAILURE(status) != 0 || !collator) {
        return nullptr;
    }
    // Width and case are differences of the third level, accents of the second.
    collator->setStrength(icu::Collator::SECONDARY);
    collator->setAttribute(UCOL_CASE_LEVEL, UCOL_OFF, status);
    collator->setAttribute(UCOL_NORMALIZATION_MODE, UCOL_ON, status);
    collator->setAttribute(UCOL_ALTERNATE_HANDLING, UCOL_NON_IGNORABLE, status);
    collator->setAttribute(UCOL_NUMERIC_COLLATION, UCOL_ON, status);
    return U_FAILURE(status) != 0 ? nullptr : std::move(collator);
}

} // namespace

ComparisonResult compareAsFileBrowser(std::string_view left, std::string_view right) {
    static const std::unique_ptr<icu::Collator> kCollator = makeCollator();
    constexpr std::size_t kLongest = std::numeric_limits<std::int32_t>::max();
    if (!kCollator || left.size() > kLongest || right.size() > kLongest) {
        return ComparisonResult::same;
    }
    UErrorCode status = U_ZERO_ERROR;
    const UCollationResult result = kCollator->compareUTF8(
        icu::StringPiece(left.data(), static_cast<std::int32_t>(left.size())),
        icu::StringPiece(right.data(), static_cast<std::int32_t>(right.size())), status);
    if (U_FAILURE(status) != 0 || result == UCOL_EQUAL) {
        return ComparisonResult::same;
    }
    return result == UCOL_LESS ? ComparisonResult::ascending : ComparisonResult::descending;
}

} // namespace qv
