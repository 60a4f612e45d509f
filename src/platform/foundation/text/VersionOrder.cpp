#include "platform/foundation/text/VersionOrder.h"

#include "platform/foundation/values/Conversions.h"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <optional>

namespace qv {

namespace {

/// The components of a text between separators, one after the other; at least one.
class Components {
public:
    Components(std::string_view text, std::string_view separator) noexcept
        : rest_(text), separator_(separator) {}

    /// Returns none behind the last one.
    std::optional<std::string_view> next() noexcept {
        if (!rest_) {
            return std::nullopt;
        }
        const std::size_t length = lengthOfComponent(*rest_);
        const std::string_view component = rest_->substr(0, length);
        if (length == std::string_view::npos) {
            rest_ = std::nullopt;
        } else {
            rest_->remove_prefix(length + separator_.size());
        }
        return component;
    }

private:
    // A loop of its own is quicker than a search of the library, as components are short.
    [[nodiscard]] std::size_t lengthOfComponent(std::string_view text) const noexcept {
        if (separator_.size() == 1) {
            const auto found = std::ranges::find(text, separator_.front());
            return found == text.end() ? std::string_view::npos
                                       : static_cast<std::size_t>(found - text.begin());
        }
        return separator_.empty() ? std::string_view::npos : text.find(separator_);
    }

    std::optional<std::string_view> rest_;
    std::string_view separator_;
};

// Judges the rest of the longer text when the other one has ended: no more than its next two
// components are looked at.
bool countsForNothing(std::string_view surplus, Components& behind) noexcept {
    return surplus == "0" && behind.next().value_or("").empty();
}

std::int64_t intValueOf(std::string_view text) noexcept {
    return integerValue(text, std::numeric_limits<std::int32_t>::min(),
                        std::numeric_limits<std::int32_t>::max());
}

ComparisonResult compareUnequalIntegers(std::string_view left, std::string_view right) noexcept {
    return intValueOf(left) > intValueOf(right) ? ComparisonResult::descending
                                                : ComparisonResult::ascending;
}

template <typename CompareUnequal>
ComparisonResult compareComponents(std::string_view left, std::string_view right,
                                   std::string_view separator,
                                   CompareUnequal compareUnequal) noexcept {
    Components leftComponents(left, separator);
    Components rightComponents(right, separator);
    std::optional<std::string_view> a = leftComponents.next();
    std::optional<std::string_view> b = rightComponents.next();
    for (; a && b; a = leftComponents.next(), b = rightComponents.next()) {
        if (*a == *b) {
            continue;
        }
        const ComparisonResult result = compareUnequal(*a, *b);
        if (result != ComparisonResult::same) {
            return result;
        }
    }
    if (a) {
        return countsForNothing(*a, leftComponents) ? ComparisonResult::same
                                                    : ComparisonResult::descending;
    }
    if (b) {
        return countsForNothing(*b, rightComponents) ? ComparisonResult::same
                                                     : ComparisonResult::ascending;
    }
    return ComparisonResult::same;
}

ComparisonResult compareWords(std::string_view left, std::string_view right) noexcept {
    return compareComponents(left, right, " ", compareUnequalIntegers);
}

ComparisonResult compareUnequalWords(std::string_view left, std::string_view right) noexcept {
    const auto isOneWord = [](std::string_view text) {
        return std::ranges::find(text, ' ') == text.end();
    };
    return isOneWord(left) && isOneWord(right) ? compareUnequalIntegers(left, right)
                                               : compareWords(left, right);
}

} // namespace

ComparisonResult compareVersions(std::string_view left, std::string_view right,
                                 std::string_view separator) noexcept {
    return separator == " " ? compareWords(left, right)
                            : compareComponents(left, right, separator, compareUnequalWords);
}

} // namespace qv
