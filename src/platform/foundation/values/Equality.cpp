#include "platform/foundation/values/Node.h"

#include <algorithm>
#include <cmath>
#include <vector>

namespace qv {

namespace {

using Kind = Value::Kind;
using Pending = std::vector<std::pair<const Value*, const Value*>>;

// Exact, without a detour through double where that would round.
bool equalsReal(std::int64_t integer, double real) {
    constexpr double kLimit = 9223372036854775808.0; // 2^63
    return real >= -kLimit && real < kLimit && std::trunc(real) == real &&
           static_cast<std::int64_t>(real) == integer;
}

bool equalNumbers(const Value& left, const Value& right) {
    if (left.is(Kind::real) && right.is(Kind::real)) {
        return left.asReal() == right.asReal();
    }
    if (left.is(Kind::real) || right.is(Kind::real)) {
        const Value& real = left.is(Kind::real) ? left : right;
        const Value& other = left.is(Kind::real) ? right : left;
        if (other.is(Kind::unsignedInteger)) {
            constexpr double kLimit = 18446744073709551616.0; // 2^64
            const double number = real.asReal();
            return number >= 0 && number < kLimit && std::trunc(number) == number &&
                   static_cast<std::uint64_t>(number) == other.asUnsignedInteger();
        }
        return equalsReal(other.is(Kind::boolean) ? int{other.asBoolean()} : other.asInteger(),
                          real.asReal());
    }
    if (left.is(Kind::unsignedInteger) || right.is(Kind::unsignedInteger)) {
        return left.kind() == right.kind() && left.asUnsignedInteger() == right.asUnsignedInteger();
    }
    const auto integer = [](const Value& value) -> std::int64_t {
        return value.is(Kind::boolean) ? int{value.asBoolean()} : value.asInteger();
    };
    return integer(left) == integer(right);
}

bool equalSets(const Value& left, const Value& right) {
    const auto within = [](const Value& inner, const Value& outer) {
        return std::ranges::all_of(inner.asArray(), [&](const Value& element) {
            return std::ranges::find(outer.asArray(), element) != outer.asArray().end();
        });
    };
    return within(left, right) && within(right, left);
}

bool queueDictionary(const Value& left, const Value& right, Pending& pending) {
    const DictionaryView a = left.asDictionary();
    const DictionaryView b = right.asDictionary();
    if (a.size() != b.size()) {
        return false;
    }
    for (std::size_t i = 0; i < a.size(); ++i) {
        const Value* other = b.find(a.key(i));
        if (other == nullptr) {
            return false;
        }
        pending.emplace_back(&a.value(i), other);
    }
    return true;
}

bool queueSlots(std::span<const Value> left, std::span<const Value> right, Pending& pending) {
    if (left.size() != right.size()) {
        return false;
    }
    for (std::size_t i = 0; i < left.size(); ++i) {
        pending.emplace_back(&left[i], &right[i]);
    }
    return true;
}

} // namespace

bool operator==(const Value& leftRoot, const Value& rightRoot) {
    Pending pending{{&leftRoot, &rightRoot}};
    while (!pending.empty()) {
        const Value& left = *pending.back().first;
        const Value& right = *pending.back().second;
        pending.pop_back();
        if (left.sameAs(right) && !left.is(Kind::real)) {
            continue;
        }
        if (left.isNumber() && right.isNumber()) {
            if (!equalNumbers(left, right)) {
                return false;
            }
            continue;
        }
        if (left.kind() != right.kind()) {
            return false;
        }
        bool same = true;
        switch (left.kind()) {
        case Kind::string:
            same = left.asString() == right.asString();
            break;
        case Kind::data:
            same = left.asData() == right.asData();
            break;
        case Kind::date:
            same = left.asDate() == right.asDate();
            break;
        case Kind::uid:
            same = left.asUID() == right.asUID();
            break;
        case Kind::set:
            same = left.asArray().size() == right.asArray().size() && equalSets(left, right);
            break;
        case Kind::dictionary:
            same = queueDictionary(left, right, pending);
            break;
        case Kind::error:
            same = *left.node()->payload<std::int64_t>() == *right.node()->payload<std::int64_t>();
            [[fallthrough]];
        default:
            same = same && (left.isNull() ||
                            queueSlots(left.node()->slots(), right.node()->slots(), pending));
        }
        if (!same) {
            return false;
        }
    }
    return true;
}

} // namespace qv
