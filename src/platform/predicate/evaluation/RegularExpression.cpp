#include "platform/foundation/values/Exception.h"
#include "platform/predicate/evaluation/Matching.h"
#include "platform/predicate/evaluation/TextFolding.h"
#include "platform/predicate/language/Reasons.h"

#include <fmt/core.h>
#include <unicode/regex.h>
#include <unicode/utext.h>

#include <algorithm>
#include <memory>
#include <optional>
#include <vector>

namespace qv::predicate {

namespace {

// The compilation of a pattern cannot be ended: these bounds keep it within some tenths of a
// second.
constexpr std::size_t kLongestPattern = std::size_t{1} << 14U;
constexpr std::size_t kMostSets = 256;
constexpr std::size_t kShortText = 4096;
constexpr std::int32_t kStackLimit = 8 << 20;
constexpr std::uint32_t kNoFlags = 0;

[[noreturn]] void raiseFor(std::string_view cause, std::string_view pattern) {
    throw Exception("NSInternalInconsistencyException",
                    fmt::format("MATCHES: {} (pattern {})", cause, quoted(pattern)));
}

void requireSuccess(UErrorCode status, std::string_view pattern) {
    if (U_FAILURE(status) != 0) {
        raiseFor(u_errorName(status), pattern);
    }
}

icu::UnicodeString unitsOf(std::string_view text) {
    return icu::UnicodeString::fromUTF8({text.data(), static_cast<std::int32_t>(text.size())});
}

// Sets of characters as they are written: `[`, `\p`, `\P` and `\N`.
std::size_t setsIn(std::string_view pattern) {
    std::size_t sets = 0;
    for (std::size_t index = 0; index < pattern.size(); ++index) {
        if (pattern[index] == '\\' && index + 1 < pattern.size()) {
            const char escaped = pattern[++index];
            sets += escaped == 'p' || escaped == 'P' || escaped == 'N' ? 1U : 0U;
        } else {
            sets += pattern[index] == '[' ? 1U : 0U;
        }
    }
    return sets;
}

// The text for a matcher in pieces of some characters. When the time is over the text has no more,
// so that no step of the matcher takes long, whatever it repeats.
class MatchedText {
public:
    MatchedText(std::string_view text, const Budget& budget, UErrorCode& status)
        : budget_(budget), text_(::utext_openUTF8(nullptr, text.data(),
                                                  static_cast<std::int64_t>(text.size()), &status),
                                 ::utext_close) {
        if (text_) {
            original_ = text_->pFuncs;
            static_cast<UTextFuncs&>(functions_) = *original_;
            functions_.access = accessWithinTime;
            functions_.owner = this;
            text_->pFuncs = &functions_;
        }
    }
    MatchedText(const MatchedText&) = delete;
    MatchedText(MatchedText&&) = delete;
    MatchedText& operator=(const MatchedText&) = delete;
    MatchedText& operator=(MatchedText&&) = delete;
    ~MatchedText() = default;
    [[nodiscard]] UText* get() const noexcept { return text_.get(); }

private:
    struct Functions : UTextFuncs {
        MatchedText* owner = nullptr;
    };

    static UBool U_CALLCONV accessWithinTime(UText* text, std::int64_t index, UBool forward) {
        constexpr unsigned kAccessesBetweenLooks = 64;
        // The matcher's copies of the text share these functions.
        MatchedText& self = *static_cast<const Functions&>(*text->pFuncs).owner;
        self.over_ =
            self.over_ || (++self.accesses_ % kAccessesBetweenLooks == 0 && self.budget_.isOver());
        if (self.over_) {
            static_cast<void>(self.original_->access(text, self.original_->nativeLength(text),
                                                     static_cast<UBool>(true)));
            return static_cast<UBool>(false);
        }
        return self.original_->access(text, index, forward);
    }

    const Budget& budget_;
    unsigned accesses_ = 0;
    bool over_ = false;
    const UTextFuncs* original_ = nullptr;
    Functions functions_{};
    std::unique_ptr<UText, UText* (*)(UText*)> text_;
};

UBool U_CALLCONV goesOn(const void* budget, std::int32_t /*steps*/) {
    return static_cast<UBool>(!static_cast<const Budget*>(budget)->isOver());
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

bool textMatches(std::string_view text, std::string_view pattern, Modifiers modifiers,
                 Budget& budget) {
    if (pattern.empty()) {
        return false;
    }
    if (pattern.size() > kLongestPattern) {
        raiseFor(fmt::format("the pattern is longer than {} bytes", kLongestPattern), pattern);
    }
    if (setsIn(pattern) > kMostSets) {
        raiseFor(fmt::format("the pattern has more than {} sets of characters", kMostSets),
                 pattern);
    }
    budget.charge(text);
    // ICU folds case itself; folding it here would change what `\S` means.
    const bool strips = modifiers.diacriticInsensitive && !modifiers.normalized;
    const Modifiers diacritics{.diacriticInsensitive = true};
    const bool foldsCase = modifiers.caseInsensitive && !modifiers.normalized;

    UErrorCode status = U_ZERO_ERROR;
    const std::shared_ptr<const icu::RegexPattern> compiled =
        compiledPattern(strips ? unitsOf(folded(pattern, diacritics)) : unitsOf(pattern),
                        foldsCase ? std::uint32_t{UREGEX_CASE_INSENSITIVE} : kNoFlags, status);
    requireSuccess(status, pattern);
    const std::string folding = strips ? folded(text, diacritics) : std::string();
    const std::string_view subject = strips ? folding : text;
    icu::UnicodeString units;
    std::optional<MatchedText> pieces;
    std::unique_ptr<icu::RegexMatcher> matcher;
    if (subject.size() <= kShortText) { // quicker in one piece
        units = unitsOf(subject);
        matcher.reset(compiled->matcher(units, status));
    } else {
        pieces.emplace(subject, budget, status);
        matcher.reset(compiled->matcher(status));
    }
    requireSuccess(status, pattern);
    if (pieces) {
        matcher->reset(pieces->get());
    }
    matcher->setMatchCallback(goesOn, &budget, status);
    matcher->setStackLimit(kStackLimit, status);
    const bool matches = matcher->matches(status) != 0;
    budget.requireTime();
    requireSuccess(status, pattern);
    return matches;
}

} // namespace qv::predicate
