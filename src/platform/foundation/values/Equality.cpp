#include "platform/foundation/values/Node.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <map>
#include <unordered_map>
#include <vector>

namespace qv {

namespace {

using Kind = Value::Kind;

constexpr double kTwoTo63 = 9223372036854775808.0;
constexpr double kTwoTo64 = 18446744073709551616.0;

// A number in the one form that all equal numbers share: an integer where it is one, exactly.
struct PlainNumber {
    Kind kind = Kind::integer;
    std::uint64_t bits = 0;
    friend bool operator==(const PlainNumber&, const PlainNumber&) = default;
};

PlainNumber plainReal(double real) {
    if (std::trunc(real) == real) { // the test of the range comes before the cast
        if (real >= -kTwoTo63 && real < kTwoTo63) {
            return {Kind::integer, static_cast<std::uint64_t>(static_cast<std::int64_t>(real))};
        }
        if (real > 0 && real < kTwoTo64) {
            return {Kind::unsignedInteger, static_cast<std::uint64_t>(real)};
        }
    }
    return {Kind::real, std::bit_cast<std::uint64_t>(real)};
}

PlainNumber plainNumber(const Value& number) {
    switch (number.kind()) {
    case Kind::boolean:
        return {Kind::integer, number.asBoolean() ? 1U : 0U};
    case Kind::integer:
        return {Kind::integer, static_cast<std::uint64_t>(number.asInteger())};
    case Kind::unsignedInteger:
        return {Kind::unsignedInteger, number.asUnsignedInteger()};
    default:
        return plainReal(number.asReal());
    }
}

bool isNotANumber(const Value& value) {
    return (value.is(Kind::real) && std::isnan(value.asReal())) ||
           (value.is(Kind::date) && std::isnan(value.asDate().secondsSinceReference));
}

bool isContainer(const Value& value) {
    switch (value.kind()) {
    case Kind::array:
    case Kind::set:
    case Kind::dictionary:
    case Kind::url:
    case Kind::error:
        return true;
    default:
        return false;
    }
}

// The size of a string or data; other scalars have none.
std::size_t contentSize(const Value& value) {
    return value.is(Kind::string) ? value.asString().size()
           : value.is(Kind::data) ? value.asData().size()
                                  : 0;
}

bool equalScalars(const Value& left, const Value& right) {
    if (isNotANumber(left) || isNotANumber(right)) {
        return false;
    }
    if (left.sameAs(right)) {
        return true;
    }
    if (left.isNumber() && right.isNumber()) {
        return plainNumber(left) == plainNumber(right);
    }
    if (left.kind() != right.kind()) {
        return false;
    }
    switch (left.kind()) {
    case Kind::string:
        return left.asString() == right.asString();
    case Kind::data:
        return left.asData() == right.asData();
    case Kind::date:
        return left.asDate() == right.asDate();
    case Kind::uid:
        return left.asUID() == right.asUID();
    default:
        return true; // two null objects
    }
}

// Numbers values so that equal ones, and no others, have the same number. Each object is looked at
// once however often it is shared, and no stack grows with the depth.
class Numbering {
public:
    std::uint32_t numberOf(const Value& root) {
        std::vector<Visit> pending{{&root, false}};
        while (!pending.empty()) {
            auto& [value, entered] = pending.back();
            if (!isContainer(*value) || containers_.contains(value->identity())) {
                pending.pop_back();
            } else if (entered) {
                containers_.emplace(value->identity(), numberOfContainer(*value));
                pending.pop_back();
            } else {
                entered = true;
                for (const Value& slot : Node::slotsOf(*value)) {
                    pending.emplace_back(&slot, false);
                }
            }
        }
        return known(root);
    }

private:
    using Visit = std::pair<const Value*, bool>;
    using Key = std::vector<std::uint32_t>;

    // The number of a scalar, or of a container that has one already.
    std::uint32_t known(const Value& value) {
        if (isContainer(value)) {
            return containers_.at(value.identity());
        }
        if (isNotANumber(value)) {
            return next_++; // equal to nothing
        }
        if (value.is(Kind::string) || value.is(Kind::data)) {
            const auto [known, isNew] = contents_.try_emplace(value.identity());
            if (isNew) {
                known->second = value.is(Kind::string) ? numberIn(texts_, value.asString())
                                                       : numberIn(data_, value.asData());
            }
            return known->second;
        }
        PlainNumber plain{value.kind(), 0};
        if (value.isNumber()) {
            plain = plainNumber(value);
        } else if (value.is(Kind::date)) { // plus 0 makes both zeros one
            plain.bits = std::bit_cast<std::uint64_t>(value.asDate().secondsSinceReference + 0.0);
        } else if (value.is(Kind::uid)) {
            plain.bits = value.asUID().index;
        }
        return numberIn(keys_, keyWith(plain.kind, plain.bits));
    }

    std::uint32_t numberOfContainer(const Value& value) {
        Key key = value.is(Kind::error)
                      ? keyWith(Kind::error, static_cast<std::uint64_t>(Node::errorCode(value)))
                      : Key{static_cast<std::uint32_t>(value.kind())};
        if (value.is(Kind::dictionary)) {
            appendPairs(key, value.asDictionary());
        } else {
            for (const Value& slot : Node::slotsOf(value)) {
                key.push_back(known(slot));
            }
        }
        if (value.is(Kind::set)) {
            std::ranges::sort(key.begin() + 1, key.end());
            const auto repeats = std::ranges::unique(key.begin() + 1, key.end());
            key.erase(repeats.begin(), repeats.end());
        }
        return numberIn(keys_, std::move(key));
    }

    void appendPairs(Key& key, const DictionaryView& pairs) {
        std::vector<std::pair<std::uint32_t, std::uint32_t>> numbers;
        numbers.reserve(pairs.size());
        for (std::size_t i = 0; i < pairs.size(); ++i) {
            numbers.emplace_back(known(pairs.keys()[i]), known(pairs.value(i)));
        }
        std::ranges::sort(numbers);
        for (const auto& [name, value] : numbers) {
            key.insert(key.end(), {name, value});
        }
    }

    static Key keyWith(Kind kind, std::uint64_t bits) {
        return {static_cast<std::uint32_t>(kind), static_cast<std::uint32_t>(bits),
                static_cast<std::uint32_t>(bits >> 32U)};
    }

    template <typename Map> std::uint32_t numberIn(Map& map, typename Map::key_type key) {
        const auto [place, isNew] = map.try_emplace(std::move(key), next_);
        next_ += isNew ? 1 : 0;
        return place->second;
    }

    std::uint32_t next_ = 0;
    // The maps are ordered: no choice of content makes them slow.
    std::map<std::string_view, std::uint32_t> texts_;
    std::map<std::string_view, std::uint32_t> data_;
    std::map<Key, std::uint32_t> keys_;
    // The contents by identity, so that each is compared once.
    std::unordered_map<std::uintptr_t, std::uint32_t> contents_;
    std::unordered_map<std::uintptr_t, std::uint32_t> containers_;
};

// Walks two trees in step, which is quick, needs no look at all of them to find a difference, and
// serves all but sets (where an element's partner is not known) and trees that share so much that
// a walk would not end (an array of one array ten times, twenty levels deep, or of one long text).
class Walk {
public:
    enum class Outcome : std::uint8_t { equal, different, undecided };

    Outcome compare(const Value& leftRoot, const Value& rightRoot) {
        queue(leftRoot, rightRoot);
        while (!pending_.empty()) {
            const auto [left, right] = pending_.back();
            pending_.pop_back();
            const Outcome outcome = compareOne(*left, *right);
            if (outcome != Outcome::equal) {
                return outcome;
            }
        }
        return Outcome::equal;
    }

private:
    static constexpr std::size_t kMostPairs = std::size_t{1} << 20U;
    static constexpr std::size_t kContentOfPair = 1024; // compared in the time of a pair

    void queue(const Value& left, const Value& right) { pending_.emplace_back(&left, &right); }

    // Whether that is not too much for a walk.
    bool take(std::size_t pairs) {
        if (pairs > kMostPairs - pairs_) {
            return false;
        }
        pairs_ += pairs;
        return true;
    }

    static Outcome decided(bool equal) { return equal ? Outcome::equal : Outcome::different; }

    // Compares two values alone: their content waits in the queue.
    Outcome compareOne(const Value& left, const Value& right) {
        if (!isContainer(left) || !isContainer(right)) {
            return take(contentSize(left) / kContentOfPair) ? decided(equalScalars(left, right))
                                                            : Outcome::undecided;
        }
        if (left.sameAs(right)) {
            return Outcome::equal;
        }
        const std::span<const Value> slots = Node::slotsOf(left);
        if (left.kind() != right.kind()) {
            return Outcome::different;
        }
        if (left.is(Kind::set)) {
            return Outcome::undecided;
        }
        if (slots.size() != Node::slotsOf(right).size() ||
            (left.is(Kind::error) && Node::errorCode(left) != Node::errorCode(right))) {
            return Outcome::different;
        }
        if (!take(slots.size())) {
            return Outcome::undecided;
        }
        if (left.is(Kind::dictionary)) {
            return queueValues(left.asDictionary(), right.asDictionary());
        }
        for (std::size_t i = 0; i < slots.size(); ++i) {
            queue(slots[i], Node::slotsOf(right)[i]);
        }
        return Outcome::equal;
    }

    Outcome queueValues(const DictionaryView& left, const DictionaryView& right) {
        for (std::size_t i = 0; i < left.size(); ++i) {
            if (!take(left.key(i).size() / kContentOfPair)) {
                return Outcome::undecided;
            }
            const Value* other = right.find(left.key(i));
            if (other == nullptr) {
                return Outcome::different;
            }
            queue(left.value(i), *other);
        }
        return Outcome::equal;
    }

    std::vector<std::pair<const Value*, const Value*>> pending_;
    std::size_t pairs_ = 0;
};

} // namespace

bool operator==(const Value& left, const Value& right) {
    if (!isContainer(left) || !isContainer(right)) {
        return equalScalars(left, right);
    }
    switch (Walk().compare(left, right)) {
    case Walk::Outcome::equal:
        return true;
    case Walk::Outcome::different:
        return false;
    case Walk::Outcome::undecided:
        break;
    }
    Numbering numbering;
    return numbering.numberOf(left) == numbering.numberOf(right);
}

} // namespace qv
