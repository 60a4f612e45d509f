#include "platform/foundation/values/Exception.h"
#include "platform/predicate/text/Folding.h"
#include "platform/predicate/text/Matching.h"

#include <fmt/core.h>
#include <unicode/regex.h>

#include <algorithm>
#include <memory>
#include <vector>

namespace qv::predicate {

namespace {

constexpr std::size_t kLongestPattern = std::size_t{1} << 16U;
constexpr std::int32_t kTimeLimit = 1000; // about as many milliseconds
constexpr std::int32_t kStackLimit = 8 << 20;
constexpr std::uint32_t kNoFlags = 0;

class Failure {
public:
    Failure(std::string_view text, std::string_view pattern, Modifiers modifiers)
        : text_(text), pattern_(pattern), modifiers_(modifiers) {}

    [[noreturn]] void raise(std::string_view what) const {
        throw Exception(
            "NSInternalInconsistencyException",
            fmt::format("Can't do regex matching, reason: {} (string {}, pattern {}, case {}, "
                        "canon {})",
                        what, text_, pattern_, modifiers_.caseInsensitive ? 1 : 0,
                        modifiers_.diacriticInsensitive ? 1 : 0));
    }

private:
    std::string_view text_;
    std::string_view pattern_;
    Modifiers modifiers_;
};

icu::UnicodeString unitsOf(std::string_view text) {
    return icu::UnicodeString::fromUTF8({text.data(), static_cast<std::int32_t>(text.size())});
}

// The patterns that this thread used last, compiled: that takes ten times as long as a match.
std::shared_ptr<const icu::RegexPattern> compiledPattern(const icu::UnicodeString& pattern,
                                                         std::uint32_t flags, UErrorCode& status) {
    constexpr std::size_t kKept = 16;
    struct Compiled {
        icu::UnicodeString pattern;
        std::uint32_t flags;
        std::shared_ptr<const icu::RegexPattern> expression;
    };
    thread_local std::vector<Compiled> kept;
    const auto known = std::ranges::find_if(
        kept, [&](const Compiled& each) { return each.flags == flags && each.pattern == pattern; });
    if (known != kept.end()) {
        std::rotate(kept.begin(), known, known + 1);
        return kept.front().expression;
    }
    UParseError place;
    std::shared_ptr<const icu::RegexPattern> compiled(
        icu::RegexPattern::compile(pattern, flags, place, status));
    if (U_SUCCESS(status) != 0) {
        if (kept.size() == kKept) {
            kept.pop_back();
        }
        kept.insert(kept.begin(), {pattern, flags, compiled});
    }
    return compiled;
}

} // namespace

bool textMatches(std::string_view text, std::string_view pattern, Modifiers modifiers) {
    if (pattern.empty()) {
        return false;
    }
    const Failure failure(text, pattern, modifiers);
    if (pattern.size() > kLongestPattern) {
        failure.raise(fmt::format("the pattern is longer than {} bytes", kLongestPattern));
    }
    // ICU folds case itself; folding it here would change what `\S` means.
    const bool strips = modifiers.diacriticInsensitive && !modifiers.normalized;
    const Modifiers diacritics{.diacriticInsensitive = true};
    const auto comparable = [&](std::string_view from) {
        return strips ? unitsOf(folded(from, diacritics)) : unitsOf(from);
    };
    const bool foldsCase = modifiers.caseInsensitive && !modifiers.normalized;

    UErrorCode status = U_ZERO_ERROR;
    const std::shared_ptr<const icu::RegexPattern> compiled = compiledPattern(
        comparable(pattern), foldsCase ? std::uint32_t{UREGEX_CASE_INSENSITIVE} : kNoFlags, status);
    if (U_FAILURE(status) != 0) {
        failure.raise(fmt::format("Can't open pattern {}", u_errorName(status)));
    }
    const icu::UnicodeString subject = comparable(text);
    const std::unique_ptr<icu::RegexMatcher> matcher(compiled->matcher(subject, status));
    if (U_FAILURE(status) != 0) {
        failure.raise(u_errorName(status));
    }
    matcher->setTimeLimit(kTimeLimit, status);
    matcher->setStackLimit(kStackLimit, status);
    const bool matches = matcher->matches(status) != 0;
    if (U_FAILURE(status) != 0) {
        failure.raise(u_errorName(status));
    }
    return matches;
}

} // namespace qv::predicate
