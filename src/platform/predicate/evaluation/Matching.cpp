#include "platform/predicate/evaluation/Matching.h"

#include "platform/predicate/evaluation/TextFolding.h"

#include <algorithm>
#include <cstring>

namespace qv::predicate {

namespace {

// The order by UTF-16 units is that of bytes, but a character above U+FFFF, which begins with F0 to
// F4 here and with a surrogate there, comes before U+E000 to U+FFFF, which begin with EE and EF.
std::strong_ordering orderOfUnits(std::string_view left, std::string_view right) {
    const auto [l, r] = std::ranges::mismatch(left, right);
    if (l == left.end() || r == right.end()) {
        return left.size() <=> right.size();
    }
    const auto rank = [](char c) -> unsigned {
        const auto byte = static_cast<unsigned char>(c);
        if (byte >= 0xF0) {
            return byte - 2U;
        }
        return byte >= 0xEE ? byte + 0x10U : byte;
    };
    return rank(*l) <=> rank(*r);
}

// Whether a match of these bytes covers whole characters, accents and all.
bool isWhole(std::string_view text, std::size_t begin, std::size_t length) {
    return !beginsWithMark(text.substr(begin + length)) &&
           (begin == 0 || !beginsWithMark(text.substr(begin)));
}

bool isFoundInComparable(std::string_view text, std::string_view wanted, Anchor anchor,
                         bool wholeCharacters, Budget& budget) {
    const auto accepted = [&](std::size_t begin) {
        return !wholeCharacters || isWhole(text, begin, wanted.size());
    };
    switch (anchor) {
    case Anchor::begin:
        return text.starts_with(wanted) && accepted(0);
    case Anchor::end:
        return text.ends_with(wanted) && accepted(text.size() - wanted.size());
    case Anchor::none:
        break;
    }
    constexpr std::size_t kFewSteps = 4096;
    if (!wholeCharacters && text.size() * wanted.size() < kFewSteps) {
        return text.find(wanted) != std::string_view::npos; // quicker on short texts only
    }
    std::size_t from = 0;
    while (true) { // memmem needs linear time, whatever is looked for
        const void* found =
            ::memmem(text.data() + from, text.size() - from, wanted.data(), wanted.size());
        if (found == nullptr) {
            return false;
        }
        const auto begin = static_cast<std::size_t>(static_cast<const char*>(found) - text.data());
        if (accepted(begin)) {
            return true;
        }
        from = begin + 1;
        budget.charge(wanted.size());
    }
}

} // namespace

bool textIsEqual(std::string_view left, std::string_view right, Modifiers modifiers,
                 Budget& budget) {
    budget.charge(left);
    if (!modifiers.fold()) {
        return left == right;
    }
    budget.charge(right);
    return folded(left, modifiers) == folded(right, modifiers);
}

std::strong_ordering textOrder(std::string_view left, std::string_view right, Modifiers modifiers,
                               Budget& budget) {
    budget.charge(left);
    budget.charge(right);
    if (modifiers.localeSensitive && !modifiers.normalized) {
        return orderOfCollation(left, right, modifiers, budget);
    }
    if (!modifiers.fold() && isASCII(left) && isASCII(right)) {
        return left.compare(right) <=> 0;
    }
    if (modifiers.normalized) {
        return orderOfUnits(left, right);
    }
    return orderOfUnits(folded(left, modifiers), folded(right, modifiers));
}

bool textIsFound(std::string_view text, std::string_view wanted, Anchor anchor, Modifiers modifiers,
                 Budget& budget) {
    if (wanted.empty()) {
        return false;
    }
    budget.charge(text);
    budget.charge(wanted);
    const bool ascii = isASCII(text) && isASCII(wanted);
    if (!modifiers.fold() && (modifiers.normalized || ascii)) {
        return isFoundInComparable(text, wanted, anchor, false, budget);
    }
    const std::string comparable = folded(wanted, modifiers);
    return !comparable.empty() &&
           isFoundInComparable(folded(text, modifiers), comparable, anchor, !ascii, budget);
}

} // namespace qv::predicate
