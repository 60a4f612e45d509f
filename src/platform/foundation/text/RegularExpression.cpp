#include "platform/foundation/text/RegularExpression.h"

#include <unicode/regex.h>

#include <limits>

namespace qv {

namespace {

constexpr std::int32_t kMostTime = 2000;      // in the library's steps, about a millisecond each
constexpr std::int32_t kMostMemory = 8 << 20; // bytes

} // namespace

struct RegularExpression::Matcher {
    icu::UnicodeString text;
    std::unique_ptr<icu::RegexMatcher> matcher;
    bool anchored;
};

RegularExpression::RegularExpression(std::unique_ptr<Matcher> matcher)
    : matcher_(std::move(matcher)) {}
RegularExpression::RegularExpression(RegularExpression&&) noexcept = default;
RegularExpression& RegularExpression::operator=(RegularExpression&&) noexcept = default;
RegularExpression::~RegularExpression() = default;

std::optional<RegularExpression> RegularExpression::compile(std::u16string_view text,
                                                            std::u16string_view expression,
                                                            StringCompareOptions options) {
    constexpr std::size_t kLongest = std::numeric_limits<std::int32_t>::max() / 2;
    if (text.size() > kLongest || expression.size() > kLongest || expression.empty()) {
        return std::nullopt;
    }
    auto made =
        std::make_unique<Matcher>(Matcher{{text.data(), static_cast<std::int32_t>(text.size())},
                                          nullptr,
                                          hasOption(options, StringCompareOptions::anchored)});
    UErrorCode status = U_ZERO_ERROR;
    const bool anyCase = hasOption(options, StringCompareOptions::caseInsensitive);
    made->matcher = std::make_unique<icu::RegexMatcher>(
        icu::UnicodeString(expression.data(), static_cast<std::int32_t>(expression.size())),
        anyCase ? static_cast<std::uint32_t>(UREGEX_CASE_INSENSITIVE) : 0U, status);
    if (U_FAILURE(status) != 0) {
        return std::nullopt;
    }
    made->matcher->setTimeLimit(kMostTime, status);
    made->matcher->setStackLimit(kMostMemory, status);
    made->matcher->reset(made->text);
    return RegularExpression(std::move(made));
}

std::optional<Range> RegularExpression::find(std::size_t from, std::size_t to) {
    icu::RegexMatcher& matcher = *matcher_->matcher;
    UErrorCode status = U_ZERO_ERROR;
    matcher.region(static_cast<std::int64_t>(from), static_cast<std::int64_t>(to), status);
    matcher.useTransparentBounds(static_cast<UBool>(true));
    matcher.useAnchoringBounds(static_cast<UBool>(false));
    const bool found = (matcher_->anchored ? matcher.lookingAt(status) : matcher.find(status)) != 0;
    if (!found || U_FAILURE(status) != 0) {
        return std::nullopt;
    }
    const auto begin = static_cast<std::uint64_t>(matcher.start64(status));
    return Range{begin, static_cast<std::uint64_t>(matcher.end64(status)) - begin};
}

std::optional<std::u16string> RegularExpression::replaceAll(std::u16string_view replacement) {
    if (replacement.size() > std::numeric_limits<std::int32_t>::max()) {
        return std::nullopt;
    }
    icu::RegexMatcher& matcher = *matcher_->matcher;
    const icu::UnicodeString pattern(replacement.data(),
                                     static_cast<std::int32_t>(replacement.size()));
    UErrorCode status = U_ZERO_ERROR;
    matcher.reset();
    const icu::UnicodeString result = matcher.replaceAll(pattern, status);
    if (U_FAILURE(status) != 0) {
        return std::nullopt;
    }
    return std::u16string(result.getBuffer(), static_cast<std::size_t>(result.length()));
}

} // namespace qv
