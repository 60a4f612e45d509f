#include "platform/predicate/evaluation/Evaluation.h"

#include "platform/predicate/evaluation/Arithmetic.h"
#include "platform/predicate/evaluation/Comparing.h"
#include "platform/predicate/evaluation/Functions.h"
#include "platform/predicate/evaluation/KeyPath.h"
#include "platform/predicate/language/Reasons.h"

#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <ranges>

namespace qv::predicate {

namespace {

using ValueKind = Value::Kind;
using Kind = Expression::Kind;

[[noreturn]] void raiseNoElement(const Value& of, std::string_view what) {
    raiseInvalidArgument(fmt::format("Can't get {} of {}", what, kindAndValue(of)));
}

Value elementAt(const Value& array, const Value& subscript) {
    if (!subscript.is(ValueKind::integer)) {
        raiseInvalidArgument(
            fmt::format("Can't use {} as the index of an array", kindAndValue(subscript)));
    }
    const std::span<const Value> elements = array.asArray();
    const auto index = static_cast<std::uint64_t>(subscript.asInteger());
    if (index >= elements.size()) {
        throw Exception(std::string(exception_name::kRange),
                        fmt::format("There is no element {} in an array of {}",
                                    subscript.asInteger(), elements.size()));
    }
    return elements[index];
}

Value elementFor(const Value& container, const Value& subscript) {
    if (container.is(ValueKind::array)) {
        return elementAt(container, subscript);
    }
    if (container.is(ValueKind::dictionary) && subscript.is(ValueKind::string)) {
        const Value* found = container.find(subscript.asString());
        return found == nullptr ? Value() : *found;
    }
    if (container.is(ValueKind::dictionary)) {
        return {}; // keys are strings: nothing is stored under any other value
    }
    raiseNoElement(container, fmt::format("element {}", shown(subscript)));
}

Value elementAtEnd(const Value& container, Position position) {
    if (!container.is(ValueKind::array) && !container.is(ValueKind::set)) {
        raiseNoElement(container,
                       position == Position::first ? "the first element" : "the last element");
    }
    const std::span<const Value> elements = container.asArray();
    if (elements.empty()) {
        return {};
    }
    return position == Position::first ? elements.front() : elements.back();
}

Value sizeOf(const Value& container) {
    std::size_t size = 0;
    if (container.is(ValueKind::dictionary)) {
        size = container.asDictionary().size();
    } else if (container.is(ValueKind::array) || container.is(ValueKind::set)) {
        size = container.asArray().size();
    } else {
        raiseNoElement(container, "the size");
    }
    return Value::integer(static_cast<std::int64_t>(size));
}

} // namespace

bool Evaluation::holds(const Expression& predicate) {
    if (trace_ == nullptr) {
        return decided(predicate);
    }
    Outcome& outcome = outcomeOf(predicate);
    ++outcome.evaluations;
    outcome.last.reset();
    const bool value = decided(predicate);
    outcome.last = Value::boolean(value);
    return value;
}

bool Evaluation::decided(const Expression& predicate) {
    budget_.charge(1);
    const std::span<const std::uint32_t> operands =
        std::span(tree_.operands).subspan(predicate.firstOperand, predicate.operandCount);
    const auto operandHolds = [this](std::uint32_t operand) { return holds(tree_.nodes[operand]); };
    switch (predicate.kind) {
    case Kind::comparison:
        return compares(predicate);
    case Kind::negation:
        return !operandHolds(operands[0]);
    case Kind::conjunction:
        return std::ranges::all_of(operands, operandHolds);
    case Kind::disjunction:
        return std::ranges::any_of(operands, operandHolds);
    default:
        return predicate.truth;
    }
}

bool Evaluation::compares(const Expression& comparison) {
    Value leftScratch;
    Value rightScratch;
    const Value& left = operandOf(comparison, 0, leftScratch);
    const Value& right = operandOf(comparison, 1, rightScratch);
    if (comparison.quantifier != Quantifier::single) {
        return quantified(comparison, left, right);
    }
    return compare(comparison.comparison, comparison.modifiers, left, right, budget_);
}

bool Evaluation::quantified(const Expression& comparison, const Value& left, const Value& right) {
    const bool wantsAll = comparison.quantifier == Quantifier::all;
    const bool wantsAny = comparison.quantifier == Quantifier::any;
    if (left.isNull()) {
        return !wantsAny;
    }
    if (!left.is(ValueKind::array) && !left.is(ValueKind::set)) {
        raiseInvalidArgument(fmt::format(
            "ANY, ALL and NONE need an array or a set on the left, not {}", kindAndValue(left)));
    }
    const auto passes = [&](const Value& element) {
        budget_.charge(1);
        return compare(comparison.comparison, comparison.modifiers, element, right, budget_);
    };
    if (wantsAll) {
        return std::ranges::all_of(left.asArray(), passes);
    }
    return std::ranges::any_of(left.asArray(), passes) == wantsAny;
}

const Value& Evaluation::valueOf(const Expression& expression, Value& scratch) {
    if (trace_ == nullptr) {
        return found(expression, scratch);
    }
    Outcome& outcome = outcomeOf(expression);
    ++outcome.evaluations;
    outcome.last.reset();
    const Value& value = found(expression, scratch);
    outcome.last = value;
    return value;
}

const Value& Evaluation::found(const Expression& expression, Value& scratch) {
    switch (expression.kind) {
    case Kind::constant:
        return tree_.value(expression);
    case Kind::variable:
        return variable(expression, scratch);
    case Kind::keyPath:
        if (entries_ != nullptr && expression.singleKey && expression.operandCount == 0) {
            const Value* found = entries_->find(tree_.name(expression));
            return found == nullptr ? scratch : *found;
        }
        break;
    case Kind::aggregate:
        if (expression.value != Expression::kNoValue) {
            return tree_.value(expression);
        }
        break;
    default:
        break;
    }
    scratch = made(expression);
    return scratch;
}

Value Evaluation::made(const Expression& expression) {
    budget_.charge(1);
    Value left;
    Value right;
    switch (expression.kind) {
    case Kind::aggregate:
        return aggregate(expression);
    case Kind::self:
        return object_.self();
    case Kind::keyPath:
        return keyPath(expression);
    case Kind::assignment:
        return assigned(expression);
    case Kind::element:
        return element(expression);
    case Kind::arithmetic: {
        const Value& first = operandOf(expression, 0, left);
        return calculate(expression.arithmetic, first, operandOf(expression, 1, right));
    }
    case Kind::minus:
        return negative(operandOf(expression, 0, left));
    case Kind::function:
        return called(expression);
    case Kind::cast: {
        const Value& first = operandOf(expression, 0, left);
        budget_.charge(first);
        return budget_.made(castTo(first, operandOf(expression, 1, right)));
    }
    case Kind::ternary:
        return chosen(expression);
    case Kind::subquery:
        return subquery(expression);
    default: // FUNCTION could call anything, so it calls nothing
        raiseInvalidArgument("FUNCTION calls no methods here");
    }
}

Value* Evaluation::local(std::string_view name) {
    budget_.charge(locals_.size());
    for (auto& [known, value] : std::views::reverse(locals_)) {
        if (known == name) {
            return &value;
        }
    }
    return nullptr;
}

const Value& Evaluation::variable(const Expression& variable, Value& scratch) {
    const std::string_view name = tree_.name(variable);
    if (const Value* bound = local(name)) {
        scratch = *bound; // the list may move while the value is used
        return scratch;
    }
    const Value* found = variables_.find(name);
    if (found == nullptr) {
        raiseInvalidArgument(fmt::format("There is no variable ${}", quoted(name)));
    }
    return *found;
}

Value Evaluation::assigned(const Expression& assignment) {
    Value scratch;
    const Value value = operandOf(assignment, 0, scratch);
    const std::string_view name = tree_.name(assignment);
    if (Value* bound = local(name)) {
        *bound = value;
    } else {
        locals_.emplace_back(name, value);
    }
    return value;
}

Value Evaluation::aggregate(const Expression& aggregate) {
    std::vector<Value> elements;
    budget_.make(aggregate.operandCount);
    elements.reserve(aggregate.operandCount);
    for (std::size_t i = 0; i < aggregate.operandCount; ++i) {
        Value scratch;
        elements.push_back(operandOf(aggregate, i, scratch));
    }
    return Value::array(std::move(elements));
}

Value Evaluation::keyPath(const Expression& path) {
    if (path.operandCount == 0) {
        Value value = object_.valueForKeyPath(tree_.name(path), budget_).value_or(Value());
        budget_.requireTime(); // the object may have taken long
        return value;
    }
    Value scratch;
    return qv::valueForKeyPath(operandOf(path, 0, scratch), tree_.name(path), budget_)
        .value_or(Value());
}

Value Evaluation::element(const Expression& element) {
    Value scratch;
    Value subscriptScratch;
    const Value& container = operandOf(element, 0, scratch);
    const Value& subscript = element.position == Position::subscript
                                 ? operandOf(element, 1, subscriptScratch)
                                 : subscriptScratch;
    if (container.isNull()) {
        return {};
    }
    switch (element.position) {
    case Position::subscript:
        return elementFor(container, subscript);
    case Position::size:
        return sizeOf(container);
    default:
        return elementAtEnd(container, element.position);
    }
}

Value Evaluation::called(const Expression& function) {
    std::array<Value, kMostArguments> arguments;
    for (std::size_t i = 0; i < function.operandCount; ++i) {
        Value scratch;
        arguments[i] = operandOf(function, i, scratch);
        budget_.charge(arguments[i]);
    }
    const Arguments given{std::span<const Value>(arguments).first(function.operandCount), budget_};
    return budget_.made(functionAt(function.function).apply(given));
}

Value Evaluation::chosen(const Expression& ternary) {
    Value scratch;
    return operandOf(ternary, holds(tree_.operand(ternary, 0)) ? 1 : 2, scratch);
}

Value Evaluation::subquery(const Expression& subquery) {
    Value scratch;
    const Value collection = operandOf(subquery, 0, scratch);
    if (collection.isNull()) {
        return {};
    }
    if (!collection.is(ValueKind::array) && !collection.is(ValueKind::set)) {
        raiseInvalidArgument(
            fmt::format("SUBQUERY needs an array or a set, not {}", kindAndValue(collection)));
    }
    std::vector<Value> chosen;
    const std::size_t place = locals_.size();
    locals_.emplace_back(tree_.name(subquery), Value());
    for (const Value& element : collection.asArray()) {
        budget_.charge(1);
        locals_[place].second = element;
        if (holds(tree_.operand(subquery, 1))) {
            budget_.make(1);
            chosen.push_back(element);
        }
    }
    locals_.erase(locals_.begin() + static_cast<std::ptrdiff_t>(place));
    return Value::array(std::move(chosen));
}

} // namespace qv::predicate
