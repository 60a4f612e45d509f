#pragma once

#include "platform/foundation/text/Folding.h"
#include "platform/foundation/text/RegularExpression.h"
#include "platform/foundation/text/StringCompareOptions.h"
#include "platform/foundation/text/TextRange.h"

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

namespace qv {

/// Looks for one string in another, again and again. An empty string is never found, a bad regular
/// expression neither. Preparing takes time linear in both texts, every search in the part that it
/// passes; a regular expression that takes too long finds nothing.
class TextSearch {
public:
    TextSearch(std::u16string_view text, std::u16string_view wanted, StringCompareOptions options);

    /// The first occurrence within the range from unit `from` up to unit `to` of the text, both
    /// clamped to it; the last one for a search backwards.
    [[nodiscard]] std::optional<Range> find(std::uint64_t from, std::uint64_t to);

private:
    [[nodiscard]] std::size_t foldedFloor(std::size_t source) const;
    [[nodiscard]] std::size_t foldedCeiling(std::size_t source) const;
    [[nodiscard]] std::optional<Range> sourceRange(std::size_t begin, std::size_t end) const;
    [[nodiscard]] std::optional<Range> scanForwards(std::size_t first, std::size_t last) const;
    [[nodiscard]] std::optional<Range> scanBackwards(std::size_t first, std::size_t last) const;

    std::size_t length_;
    StringCompareOptions options_;
    std::optional<RegularExpression> expression_;
    FoldedText text_;
    std::u16string wanted_; // turned round for a search backwards
    std::vector<std::size_t> borders_;
};

} // namespace qv
