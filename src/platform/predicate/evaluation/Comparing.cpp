#include "platform/predicate/evaluation/Comparing.h"

#include "platform/predicate/evaluation/Arithmetic.h"
#include "platform/predicate/evaluation/Matching.h"
#include "platform/predicate/language/Language.h"
#include "platform/predicate/language/Reasons.h"

#include <fmt/core.h>

#include <algorithm>
#include <array>

namespace qv::predicate {

namespace {

using ValueKind = Value::Kind;

bool isCollection(const Value& value) {
    return value.is(ValueKind::array) || value.is(ValueKind::set);
}

bool holdsForOrder(Comparison comparison, std::partial_ordering order) {
    switch (comparison) {
    case Comparison::less:
        return order < 0;
    case Comparison::lessOrEqual:
        return order <= 0;
    case Comparison::greater:
        return order > 0;
    default:
        return order >= 0;
    }
}

bool isOrdered(Comparison comparison, const Value& left, const Value& right, Modifiers modifiers,
               Budget& budget) {
    if (left.isNull() || right.isNull()) {
        return left.isNull() && right.isNull() && holdsForOrder(comparison, 0 <=> 0);
    }
    return holdsForOrder(comparison, order(left, right, modifiers, budget));
}

bool isBetween(const Value& value, const Value& bounds, Budget& budget) {
    if (value.isNull() || bounds.isNull()) {
        return false;
    }
    if (!bounds.is(ValueKind::array) || bounds.asArray().size() != 2) {
        raiseInvalidArgument(
            fmt::format("BETWEEN needs an array of two bounds, not {}", kindAndValue(bounds)));
    }
    const std::span<const Value> both = bounds.asArray();
    return isOrdered(Comparison::lessOrEqual, both[0], value, {}, budget) &&
           isOrdered(Comparison::lessOrEqual, value, both[1], {}, budget);
}

bool isMember(const Value& wanted, const Value& container, Modifiers modifiers, Budget& budget) {
    if (wanted.isNull() || container.isNull()) {
        return false;
    }
    if (container.is(ValueKind::string)) {
        if (!wanted.is(ValueKind::string)) {
            raiseInvalidArgument(fmt::format("Can't look for {} in {}", kindAndValue(wanted),
                                             kindAndValue(container)));
        }
        return textIsFound(container.asString(), wanted.asString(), Anchor::none, modifiers,
                           budget);
    }
    if (!isCollection(container) && !container.is(ValueKind::dictionary)) {
        raiseInvalidArgument(
            fmt::format("IN and CONTAINS need a string or a collection to look in, not {}",
                        kindAndValue(container)));
    }
    const std::span<const Value> elements = container.is(ValueKind::dictionary)
                                                ? container.asDictionary().values()
                                                : container.asArray();
    return std::ranges::any_of(elements, [&](const Value& element) {
        return isEqual(element, wanted, modifiers, budget);
    });
}

bool isPartOf(Anchor anchor, const Value& left, const Value& right, Modifiers modifiers,
              Budget& budget) {
    if (left.isNull() || right.isNull()) {
        return false;
    }
    if (!left.is(ValueKind::string) || !right.is(ValueKind::string)) {
        raiseInvalidArgument(fmt::format("BEGINSWITH and ENDSWITH need two strings, not {} and {}",
                                         kindAndValue(left), kindAndValue(right)));
    }
    return textIsFound(left.asString(), right.asString(), anchor, modifiers, budget);
}

bool matchesPattern(Comparison comparison, const Value& left, const Value& right,
                    Modifiers modifiers, Budget& budget) {
    if (left.isNull() || right.isNull()) {
        return false;
    }
    if (!left.is(ValueKind::string) || !right.is(ValueKind::string)) {
        raiseInvalidArgument(fmt::format("{} needs two strings, not {} and {}",
                                         spelling(comparison), kindAndValue(left),
                                         kindAndValue(right)));
    }
    return comparison == Comparison::like
               ? textIsLike(left.asString(), right.asString(), modifiers, budget)
               : textMatches(left.asString(), right.asString(), modifiers, budget);
}

} // namespace

bool isEqual(const Value& left, const Value& right, Modifiers modifiers, Budget& budget) {
    // The comparisons of most rules come first.
    if (left.isNull() || right.isNull()) {
        return left.sameAs(right);
    }
    const ValueKind kind = left.kind();
    if (kind == ValueKind::string) {
        return right.is(ValueKind::string) &&
               textIsEqual(left.asString(), right.asString(), modifiers, budget);
    }
    const bool whole = kind == ValueKind::boolean || kind == ValueKind::integer;
    if (whole && left.sameAs(right)) {
        return true;
    }
    budget.charge(left);
    return left == right;
}

std::partial_ordering order(const Value& left, const Value& right, Modifiers modifiers,
                            Budget& budget) {
    budget.charge(1);
    const ValueKind kind = left.kind();
    if (kind == right.kind()) {
        if (kind == ValueKind::integer) {
            return left.asInteger() <=> right.asInteger();
        }
        if (kind == ValueKind::string) {
            return textOrder(left.asString(), right.asString(), modifiers, budget);
        }
    }
    if (left.isNumber() && right.isNumber()) {
        return orderOfNumbers(left, right);
    }
    if (left.is(ValueKind::date) && right.is(ValueKind::date)) {
        return left.asDate().secondsSinceReference <=> right.asDate().secondsSinceReference;
    }
    raiseInvalidArgument(fmt::format("There is no order between {} and {}", kindAndValue(left),
                                     kindAndValue(right)));
}

bool compare(Comparison comparison, Modifiers modifiers, const Value& left, const Value& right,
             Budget& budget) {
    switch (comparison) {
    case Comparison::equal:
        return isEqual(left, right, modifiers, budget);
    case Comparison::notEqual:
        return !isEqual(left, right, modifiers, budget);
    case Comparison::less:
    case Comparison::lessOrEqual:
    case Comparison::greater:
    case Comparison::greaterOrEqual:
        return isOrdered(comparison, left, right, modifiers, budget);
    case Comparison::between:
        return isBetween(left, right, budget);
    case Comparison::in:
        return isMember(left, right, modifiers, budget);
    case Comparison::contains:
        return isMember(right, left, modifiers, budget);
    case Comparison::beginsWith:
        return isPartOf(Anchor::begin, left, right, modifiers, budget);
    case Comparison::endsWith:
        return isPartOf(Anchor::end, left, right, modifiers, budget);
    case Comparison::like:
    case Comparison::matches:
        return matchesPattern(comparison, left, right, modifiers, budget);
    case Comparison::utiConformsTo:
    case Comparison::utiEquals:
        break;
    }
    raiseInvalidArgument(fmt::format("{} needs type identifiers, which this system does not have",
                                     spelling(comparison)));
}

} // namespace qv::predicate
