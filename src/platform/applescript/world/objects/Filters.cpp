#include "platform/applescript/world/context/FilePaths.h"
#include "platform/applescript/world/context/Parameters.h"
#include "platform/applescript/world/objects/Objects.h"

#include <algorithm>
#include <compare>

namespace qv::applescript::world {

namespace {

using Filter = Specifier::Filter;
using Operation = Filter::Operation;
using Kind = ScriptValue::Kind;

ScriptValue propertyAlong(ObjectModel& model, const std::vector<Term>& path, WorldObject object) {
    for (auto term = path.rbegin(); term != path.rend(); ++term) {
        std::optional<ObjectAnswer> answer = model.property(object, *term);
        if (!answer) {
            return {};
        }
        auto* const next = std::get_if<WorldObject>(&*answer);
        if (next == nullptr) {
            return term + 1 == path.rend() ? std::get<ScriptValue>(*answer) : ScriptValue();
        }
        object = std::move(*next);
    }
    return object.kind == WorldObject::Kind::item ? ScriptValue::file(object.path, Term::alias)
                                                  : model.reference(object);
}

// A condition compares with this: an item by its path.
ScriptValue comparedValue(ObjectModel& model, const ScriptValue& value) {
    if (!value.is(Kind::specifier) && !value.is(Kind::file)) {
        return value;
    }
    const std::vector<WorldObject> objects = objectsIn(model, value);
    return objects.size() == 1 && objects.front().kind == WorldObject::Kind::item
               ? ScriptValue::file(objects.front().path, Term::alias)
               : value;
}

bool areBothPlain(const ScriptValue& left, const ScriptValue& right) {
    return left.kind() == right.kind() && !left.is(Kind::list) && !left.is(Kind::record) &&
           !left.is(Kind::specifier) && !left.is(Kind::script);
}

std::partial_ordering order(const ScriptValue& left, const ScriptValue& right) {
    if (left.isNumber() && right.isNumber()) {
        return numberFrom(left) <=> numberFrom(right);
    }
    if (left.is(Kind::date) && right.is(Kind::date)) {
        return left.asDate() <=> right.asDate();
    }
    if (left.is(Kind::text) && right.is(Kind::text)) {
        return comparable(left.asText()) <=> comparable(right.asText());
    }
    return std::partial_ordering::unordered;
}

bool areEqual(const ScriptValue& left, const ScriptValue& right) {
    if (order(left, right) == std::partial_ordering::equivalent || left.sameAs(right)) {
        return true;
    }
    if (left.is(Kind::file) && right.is(Kind::file)) {
        return left.asFilePath() == right.asFilePath();
    }
    return areBothPlain(left, right) && !left.isShared() && textFrom(left) == textFrom(right);
}

enum class Part : std::uint8_t { anywhere, begin, end };

bool hasPart(const ScriptValue& whole, const ScriptValue& part, Part where) {
    if (whole.is(Kind::list)) {
        const auto& items = whole.asList();
        return where == Part::anywhere
                   ? std::ranges::any_of(items,
                                         [&](const auto& each) { return areEqual(each, part); })
                   : !items.empty() &&
                         areEqual(where == Part::begin ? items.front() : items.back(), part);
    }
    if (!whole.is(Kind::text) || !(part.is(Kind::text) || part.isNumber())) {
        return false;
    }
    const std::u16string text = comparable(whole.asText());
    const std::u16string wanted = comparable(textFrom(part));
    return where == Part::anywhere ? text.find(wanted) != std::u16string::npos
           : where == Part::begin  ? text.starts_with(wanted)
                                   : text.ends_with(wanted);
}

bool compare(Operation operation, const ScriptValue& left, const ScriptValue& right) {
    switch (operation) {
    case Operation::equal:
        return areEqual(left, right);
    case Operation::notEqual:
        return !areEqual(left, right);
    case Operation::less:
        return order(left, right) < 0;
    case Operation::lessOrEqual:
        return order(left, right) <= 0;
    case Operation::greater:
        return order(left, right) > 0;
    case Operation::greaterOrEqual:
        return order(left, right) >= 0;
    case Operation::contains:
        return hasPart(left, right, Part::anywhere);
    case Operation::startsWith:
        return hasPart(left, right, Part::begin);
    case Operation::endsWith:
        return hasPart(left, right, Part::end);
    case Operation::isIn:
        return hasPart(right, left, Part::anywhere);
    default:
        return left.is(Kind::boolean) && left.asBoolean();
    }
}

// A condition as a list: each operation comes behind its operands, of which it takes `count` from
// the stack of results. A script chooses how deep conditions nest.
struct Instruction {
    const Filter* filter;
    bool isEntered;
};

bool combine(const Filter& filter, std::vector<bool>& results) {
    const std::size_t count = filter.operands.size();
    const auto begin = results.end() - static_cast<std::ptrdiff_t>(count);
    const auto isTrue = [](bool each) { return each; };
    const bool result =
        filter.operation == Operation::conjunction   ? std::all_of(begin, results.end(), isTrue)
        : filter.operation == Operation::disjunction ? std::any_of(begin, results.end(), isTrue)
                                                     : std::none_of(begin, results.end(), isTrue);
    results.erase(begin, results.end());
    return result;
}

bool isCombination(Operation operation) {
    return operation == Operation::conjunction || operation == Operation::disjunction ||
           operation == Operation::negation;
}

} // namespace

bool holds(ObjectModel& model, const Specifier::Filter& filter, const WorldObject& object) {
    std::vector<Instruction> waiting = {{&filter, false}};
    std::vector<bool> results;
    while (!waiting.empty()) {
        const Instruction next = waiting.back();
        waiting.pop_back();
        if (!isCombination(next.filter->operation)) {
            results.push_back(compare(next.filter->operation,
                                      propertyAlong(model, next.filter->property, object),
                                      comparedValue(model, next.filter->value)));
        } else if (next.isEntered) {
            results.push_back(combine(*next.filter, results));
        } else {
            waiting.push_back({next.filter, true});
            for (const Filter& operand : next.filter->operands) {
                waiting.push_back({&operand, false});
            }
        }
    }
    return results.back();
}

} // namespace qv::applescript::world
