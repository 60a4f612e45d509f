#pragma once

#include "platform/foundation/text/StringCompareOptions.h"
#include "platform/foundation/text/TextRange.h"

#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace qv {

/// A regular expression at work on one text. Time and memory of a match are bounded; an expression
/// that takes more does not match.
class RegularExpression {
public:
    /// Returns none when the expression is bad. Copies the text. Heeds `caseInsensitive` and
    /// `anchored`.
    [[nodiscard]] static std::optional<RegularExpression>
    compile(std::u16string_view text, std::u16string_view expression, StringCompareOptions options);
    RegularExpression(RegularExpression&&) noexcept;
    RegularExpression& operator=(RegularExpression&&) noexcept;
    RegularExpression(const RegularExpression&) = delete;
    RegularExpression& operator=(const RegularExpression&) = delete;
    ~RegularExpression();

    /// The first match in the units from `from` up to `to`, which see what stands around them.
    [[nodiscard]] std::optional<Range> find(std::size_t from, std::size_t to);
    /// The text with every match replaced: `$1` in `replacement` stands for a group, a backslash
    /// takes its meaning away. None for a group that is not there, or when it takes too long.
    [[nodiscard]] std::optional<std::u16string> replaceAll(std::u16string_view replacement);

private:
    struct Matcher;
    explicit RegularExpression(std::unique_ptr<Matcher> matcher);
    std::unique_ptr<Matcher> matcher_;
};

} // namespace qv
