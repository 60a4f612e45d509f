#include "platform/predicate/text/PlainExpression.h"

#include "platform/predicate/Language.h"

#include <bit>

namespace qv::predicate {

namespace {

// Of ASCII.
struct CharacterSet {
    std::array<std::uint64_t, 2> bits{};

    [[nodiscard]] constexpr bool isEmpty() const { return (bits[0] | bits[1]) == 0; }
    constexpr void insert(char c) {
        const auto code = static_cast<unsigned char>(c);
        bits[code / 64U] |= std::uint64_t{1} << (code % 64U);
    }
    constexpr void insert(char from, char to) {
        for (char c = from; c < to; ++c) {
            insert(c);
        }
        insert(to);
    }
    constexpr void insert(const CharacterSet& other) {
        bits[0] |= other.bits[0];
        bits[1] |= other.bits[1];
    }
    constexpr void invert() { bits = {~bits[0], ~bits[1]}; }
};

constexpr CharacterSet kDigits = [] {
    CharacterSet set;
    set.insert('0', '9');
    return set;
}();
constexpr CharacterSet kWordParts = [] {
    CharacterSet set = kDigits;
    set.insert('a', 'z');
    set.insert('A', 'Z');
    set.insert('_');
    return set;
}();
constexpr CharacterSet kAnyButLineEnds = [] {
    CharacterSet set;
    set.insert('\n', '\r');
    set.invert();
    return set;
}();

bool isLetterOrDigit(char c) { return isWordPart(c) && c != '_'; }

// A letter behind a backslash; an empty set for all that ICU may read as more than itself.
CharacterSet escaped(char c) {
    if (c == 'd') {
        return kDigits;
    }
    if (c == 'w') {
        return kWordParts;
    }
    CharacterSet set;
    if (std::string_view(".*+?()[]{}|^$\\-/").find(c) != std::string_view::npos) {
        set.insert(c);
    }
    return set;
}

} // namespace

// Reads a pattern into the automaton of its positions.
class PlainExpressionReader {
public:
    explicit PlainExpressionReader(std::string_view pattern) : pattern_(pattern) {}

    std::optional<PlainExpression> read() {
        const Part whole = alternatives();
        if (!understood_ || index_ < pattern_.size()) {
            return std::nullopt;
        }
        result_.matchesEmpty_ = whole.matchesEmpty;
        result_.first_ = whole.first;
        result_.last_ = whole.last;
        return result_;
    }

private:
    using Positions = PlainExpression::Positions;
    struct Part {
        bool matchesEmpty = true;
        Positions first = 0;
        Positions last = 0;
    };

    [[nodiscard]] char here() const { return index_ < pattern_.size() ? pattern_[index_] : '\0'; }

    Part giveUp() {
        understood_ = false;
        index_ = pattern_.size();
        return {};
    }

    Part alternatives() {
        Part part = sequence();
        while (here() == '|') {
            ++index_;
            const Part other = sequence();
            part = {part.matchesEmpty || other.matchesEmpty, part.first | other.first,
                    part.last | other.last};
        }
        return part;
    }

    Part sequence() {
        Part part;
        while (index_ < pattern_.size() && here() != '|' && here() != ')') {
            const Part next = repeated();
            connect(part.last, next.first);
            part.first |= part.matchesEmpty ? next.first : 0;
            part.last = next.last | (next.matchesEmpty ? part.last : 0);
            part.matchesEmpty = part.matchesEmpty && next.matchesEmpty;
        }
        return part;
    }

    Part repeated() {
        Part part = atom();
        const char sign = here();
        if (sign != '*' && sign != '+' && sign != '?') {
            return part;
        }
        ++index_;
        const char next = here();
        if (next == '*' || next == '+' || next == '?' || next == '{') {
            return giveUp(); // lazy or possessive
        }
        if (sign != '?') {
            if (part.matchesEmpty) {
                return giveUp(); // a round that takes nothing is a matter of its own
            }
            connect(part.last, part.first);
        }
        part.matchesEmpty = part.matchesEmpty || sign != '+';
        return part;
    }

    Part atom() {
        const char c = here();
        if (c == '(') {
            return group();
        }
        ++index_;
        CharacterSet set;
        if (c == '.') {
            set = kAnyButLineEnds;
        } else if (c == '\\') {
            set = escaped(here());
            ++index_;
        } else if (c == '[') {
            set = characterClass();
        } else if (isWordPart(c) || std::string_view(" -,:;/=<>@!%&~'\"").find(c) < kNone) {
            set.insert(c);
        }
        return set.isEmpty() || here() == '{' ? giveUp() : position(set);
    }

    Part group() {
        index_ += pattern_.substr(index_).starts_with("(?:") ? 3U : 1U;
        if (here() == '?') {
            return giveUp();
        }
        const Part part = alternatives();
        if (here() != ')') {
            return giveUp();
        }
        ++index_;
        return here() == '{' ? giveUp() : part;
    }

    // Letters, digits, points, escapes, and ranges between two letters or two digits.
    CharacterSet characterClass() {
        CharacterSet set;
        const bool negated = here() == '^';
        index_ += negated ? 1 : 0;
        while (here() != ']') {
            const char from = here();
            ++index_;
            if (from == '\\') {
                const CharacterSet more = escaped(here());
                ++index_;
                if (more.isEmpty()) {
                    return {};
                }
                set.insert(more);
            } else if (isLetterOrDigit(from) && here() == '-') {
                const char to = index_ + 1 < pattern_.size() ? pattern_[index_ + 1] : '\0';
                if (!isLetterOrDigit(to) || to < from || isDigit(from) != isDigit(to)) {
                    return {};
                }
                set.insert(from, to);
                index_ += 2;
            } else if ((isWordPart(from) || from == '.') && here() != '-') {
                set.insert(from);
            } else {
                return {};
            }
        }
        ++index_;
        if (negated && !set.isEmpty()) {
            set.invert();
        }
        return set;
    }

    Part position(const CharacterSet& set) {
        if (positions_ == PlainExpression::kMostPositions) {
            return giveUp();
        }
        const Positions bit = Positions{1} << static_cast<unsigned>(positions_);
        ++positions_;
        for (std::size_t half = 0; half < set.bits.size(); ++half) {
            for (std::uint64_t left = set.bits[half]; left != 0; left &= left - 1) {
                result_.takes_[64 * half + static_cast<std::size_t>(std::countr_zero(left))] |= bit;
            }
        }
        return {false, bit, bit};
    }

    void connect(Positions from, Positions to) {
        for (; from != 0; from &= from - 1) {
            result_.follow_[static_cast<std::size_t>(std::countr_zero(from))] |= to;
        }
    }

    static constexpr std::size_t kNone = std::string_view::npos;
    std::string_view pattern_;
    std::size_t index_ = 0;
    bool understood_ = true;
    int positions_ = 0;
    PlainExpression result_;
};

std::optional<PlainExpression> PlainExpression::compile(std::string_view pattern) {
    constexpr std::size_t kLongest = 128; // bounds the nesting as well
    if (pattern.size() > kLongest) {
        return std::nullopt;
    }
    return PlainExpressionReader(pattern).read();
}

bool PlainExpression::matches(std::string_view text) const noexcept {
    if (text.empty()) {
        return matchesEmpty_;
    }
    Positions state = first_ & takes_[static_cast<unsigned char>(text.front())];
    for (const char c : text.substr(1)) {
        Positions next = 0;
        for (; state != 0; state &= state - 1) {
            next |= follow_[static_cast<std::size_t>(std::countr_zero(state))];
        }
        state = next & takes_[static_cast<unsigned char>(c)];
    }
    return (state & last_) != 0;
}

} // namespace qv::predicate
