#include "platform/predicate/evaluation/Matching.h"
#include "platform/predicate/evaluation/TextFolding.h"

#include <algorithm>
#include <string>
#include <vector>

namespace qv::predicate {

namespace {

// A byte of text, or one of the wildcards.
struct Element {
    enum class Kind : std::uint8_t { byte, oneCharacter, anything };
    Kind kind = Kind::byte;
    char byte = '\0';
};

class Pattern {
public:
    Pattern(std::string_view pattern, Modifiers modifiers) : modifiers_(modifiers) {
        elements_.reserve(pattern.size());
        for (std::size_t index = 0; index < pattern.size(); ++index) {
            const char c = pattern[index];
            const char next = index + 1 < pattern.size() ? pattern[index + 1] : '\0';
            if (c == '?' || c == '*') {
                finishLiteral();
                elements_.push_back(
                    {c == '?' ? Element::Kind::oneCharacter : Element::Kind::anything});
            } else if (c == '\\' && (next == '?' || next == '*' || next == '\\')) {
                literal_ += next;
                ++index;
            } else {
                literal_ += c;
            }
        }
        finishLiteral();
    }

    // The last `*` takes one character more where the pattern stops fitting behind it; an earlier
    // star never has to.
    [[nodiscard]] bool fits(std::string_view text, Budget& budget) const {
        std::size_t at = 0;
        std::size_t element = 0;
        std::size_t starElement = elements_.size() + 1;
        std::size_t starText = 0;
        std::size_t steps = 0;
        while (at < text.size()) {
            if (++steps == kStepsCharged) {
                budget.charge(steps);
                steps = 0;
            }
            if (element < elements_.size() && elements_[element].kind == Element::Kind::anything) {
                starElement = element++;
                starText = at;
            } else if (element < elements_.size() && fitsHere(elements_[element], text, at)) {
                ++element;
            } else if (starElement < elements_.size()) {
                starText = behindCharacter(text, starText);
                at = starText;
                element = starElement + 1;
            } else {
                return false;
            }
        }
        return std::all_of(
            elements_.begin() + static_cast<std::ptrdiff_t>(element), elements_.end(),
            [](const Element& rest) { return rest.kind == Element::Kind::anything; });
    }

private:
    static constexpr std::size_t kStepsCharged = 64;

    void finishLiteral() {
        const std::string comparable =
            modifiers_.fold() ? folded(literal_, modifiers_) : std::move(literal_);
        for (const char c : comparable) {
            elements_.push_back({Element::Kind::byte, c});
        }
        literal_.clear();
    }

    static std::size_t behindCharacter(std::string_view text, std::size_t at) {
        do {
            ++at;
        } while (at < text.size() && (static_cast<unsigned char>(text[at]) & 0xC0U) == 0x80U);
        return at;
    }

    // Moves behind what fits.
    static bool fitsHere(const Element& element, std::string_view text, std::size_t& at) {
        if (element.kind == Element::Kind::oneCharacter) {
            at = behindCharacter(text, at);
            return true;
        }
        if (element.byte != text[at]) {
            return false;
        }
        ++at;
        return true;
    }

    Modifiers modifiers_;
    std::vector<Element> elements_;
    std::string literal_;
};

} // namespace

bool textIsLike(std::string_view text, std::string_view pattern, Modifiers modifiers,
                Budget& budget) {
    budget.charge(text);
    budget.charge(pattern);
    const Pattern parsed(pattern, modifiers);
    return modifiers.fold() ? parsed.fits(folded(text, modifiers), budget)
                            : parsed.fits(text, budget);
}

} // namespace qv::predicate
