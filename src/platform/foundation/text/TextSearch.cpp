#include "platform/foundation/text/TextSearch.h"

#include <algorithm>

namespace qv {

namespace {

using Options = StringCompareOptions;
using Boundary = FoldedText::Boundary;

// The length of the longest border of each prefix of `wanted`, for a scan that never steps back
// (Knuth, Morris and Pratt).
std::vector<std::size_t> bordersOf(std::u16string_view wanted) {
    std::vector<std::size_t> borders(wanted.size() + 1, 0);
    std::size_t matched = 0;
    for (std::size_t index = 1; index < wanted.size(); ++index) {
        while (matched > 0 && wanted[index] != wanted[matched]) {
            matched = borders[matched];
        }
        if (wanted[index] == wanted[matched]) {
            ++matched;
        }
        borders[index + 1] = matched;
    }
    return borders;
}

// Calls `found` with the count of units passed whenever `wanted` has just been passed, until it
// answers true.
template <typename Iterator, typename Found>
void scan(Iterator at, const Iterator& end, std::u16string_view wanted,
          const std::vector<std::size_t>& borders, Found found) {
    std::size_t matched = 0;
    for (std::size_t passed = 1; at != end; ++at, ++passed) {
        while (matched > 0 && *at != wanted[matched]) {
            matched = borders[matched];
        }
        if (*at == wanted[matched]) {
            ++matched;
        }
        if (matched == wanted.size()) {
            if (found(passed)) {
                return;
            }
            matched = borders[matched];
        }
    }
}

} // namespace

TextSearch::TextSearch(std::u16string_view text, std::u16string_view wanted, Options options)
    : length_(text.size()), options_(options) {
    if (hasOption(options, Options::regularExpression)) {
        expression_ = RegularExpression::compile(text, wanted, options);
        return;
    }
    wanted_ = foldedText(wanted, options).units;
    if (wanted_.empty()) {
        return;
    }
    text_ = foldedText(text, options);
    if (hasOption(options, Options::backwards)) {
        std::ranges::reverse(wanted_);
    }
    borders_ = bordersOf(wanted_);
}

std::optional<Range> TextSearch::find(std::uint64_t from, std::uint64_t to) {
    const auto end = static_cast<std::size_t>(std::min<std::uint64_t>(to, length_));
    if (from >= end) {
        return std::nullopt;
    }
    const auto begin = static_cast<std::size_t>(from);
    if (expression_) {
        return expression_->find(begin, end);
    }
    if (wanted_.empty()) {
        return std::nullopt;
    }
    const std::size_t first = foldedCeiling(begin);
    const std::size_t last = foldedFloor(end);
    if (first > last || last - first < wanted_.size()) {
        return std::nullopt;
    }
    return hasOption(options_, Options::backwards) ? scanBackwards(first, last)
                                                   : scanForwards(first, last);
}

std::optional<Range> TextSearch::scanForwards(std::size_t first, std::size_t last) const {
    const bool anchored = hasOption(options_, Options::anchored);
    const std::size_t length = wanted_.size();
    std::optional<Range> result;
    const std::u16string_view part =
        std::u16string_view(text_.units).substr(first, anchored ? length : last - first);
    scan(part.begin(), part.end(), wanted_, borders_, [&](std::size_t passed) {
        result = sourceRange(first + passed - length, first + passed);
        return result.has_value();
    });
    return result;
}

std::optional<Range> TextSearch::scanBackwards(std::size_t first, std::size_t last) const {
    const bool anchored = hasOption(options_, Options::anchored);
    const std::size_t length = wanted_.size();
    if (anchored) {
        first = last - length;
    }
    std::optional<Range> result;
    const std::u16string_view part = std::u16string_view(text_.units).substr(first, last - first);
    scan(part.rbegin(), part.rend(), wanted_, borders_, [&](std::size_t passed) {
        result = sourceRange(last - passed, last - passed + length);
        return result.has_value();
    });
    return result;
}

std::size_t TextSearch::foldedCeiling(std::size_t source) const {
    return text_.boundaries.empty()
               ? source
               : std::ranges::lower_bound(text_.boundaries, source, {}, &Boundary::source)->folded;
}

std::size_t TextSearch::foldedFloor(std::size_t source) const {
    return text_.boundaries.empty() ? source
                                    : std::prev(std::ranges::upper_bound(text_.boundaries, source,
                                                                         {}, &Boundary::source))
                                          ->folded;
}

// The part of the text that was folded to a part of `units`; none when it is not whole characters.
std::optional<Range> TextSearch::sourceRange(std::size_t begin, std::size_t end) const {
    if (text_.boundaries.empty()) {
        return Range{begin, end - begin};
    }
    // A character may have been folded to nothing: the place then belongs to the next one.
    const auto behind = std::ranges::upper_bound(text_.boundaries, begin, {}, &Boundary::folded);
    const auto last = std::ranges::lower_bound(text_.boundaries, end, {}, &Boundary::folded);
    const auto first = std::prev(behind);
    if (first->folded != begin || last->folded != end) {
        return std::nullopt;
    }
    return Range{first->source, last->source - first->source};
}

} // namespace qv
