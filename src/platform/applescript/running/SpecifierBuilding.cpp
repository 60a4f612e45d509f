#include "platform/applescript/running/Failure.h"
#include "platform/applescript/running/ScriptRun.h"

#include <algorithm>
#include <array>

namespace qv::applescript {

namespace {

using Operation = Specifier::Filter::Operation;

struct FilterRow {
    BinaryOperator operation;
    Operation filter;
    bool isNegated;
    Operation turned; ///< the operation with the property on the right; `holds`: there is none
};
constexpr auto kFilters = std::to_array<FilterRow>({
    {BinaryOperator::equal, Operation::equal, false, Operation::equal},
    {BinaryOperator::notEqual, Operation::notEqual, false, Operation::notEqual},
    {BinaryOperator::less, Operation::less, false, Operation::greater},
    {BinaryOperator::lessOrEqual, Operation::lessOrEqual, false, Operation::greaterOrEqual},
    {BinaryOperator::greater, Operation::greater, false, Operation::less},
    {BinaryOperator::greaterOrEqual, Operation::greaterOrEqual, false, Operation::lessOrEqual},
    {BinaryOperator::contains, Operation::contains, false, Operation::isIn},
    {BinaryOperator::doesNotContain, Operation::contains, true, Operation::isIn},
    {BinaryOperator::startsWith, Operation::startsWith, false, Operation::holds},
    {BinaryOperator::endsWith, Operation::endsWith, false, Operation::holds},
    {BinaryOperator::isIn, Operation::isIn, false, Operation::contains},
    {BinaryOperator::isNotIn, Operation::isIn, true, Operation::contains},
});

Specifier::Filter joinedBy(Operation operation, std::vector<Specifier::Filter> operands) {
    Specifier::Filter filter;
    filter.operation = operation;
    filter.operands = std::move(operands);
    return filter;
}

} // namespace

ScriptValue ScriptRun::extended(const ScriptValue& object, Step step) {
    Specifier specifier = object.asSpecifier();
    specifier.steps.push_back(std::move(step));
    return ScriptValue::specifier(std::move(specifier));
}

// The properties that lead from the element that is looked at: `name of file of it`.
std::optional<std::vector<Term>> ScriptRun::pathOf(const Node& node) {
    std::vector<Term> path;
    for (const Node* at = &node;;) {
        if (at == nullptr || at->kind == NodeKind::it) {
            return path;
        }
        if (at->kind == NodeKind::coercion) {
            at = static_cast<const Coercion*>(at)->value;
            continue;
        }
        if (at->kind == NodeKind::propertyOf) {
            const auto& property = static_cast<const PropertyOf&>(*at);
            if (property.property == Term::none) {
                return std::nullopt;
            }
            path.push_back(property.property);
            at = property.container;
            continue;
        }
        const bool isClass = at->kind == NodeKind::element &&
                             static_cast<const Element*>(at)->form == Form::every &&
                             static_cast<const Element*>(at)->filter == nullptr;
        if (!isClass) {
            return std::nullopt;
        }
        path.push_back(static_cast<const Element*>(at)->type);
        at = static_cast<const Element*>(at)->container;
    }
}

Specifier::Filter ScriptRun::comparisonOf(const Binary& node) {
    const auto* row = std::ranges::find(kFilters, node.operation, &FilterRow::operation);
    const auto left = pathOf(*node.left);
    const auto right = left ? std::nullopt : pathOf(*node.right);
    const bool canSay = left || (right && row != kFilters.end() && row->turned != Operation::holds);
    if (row == kFilters.end() || !canSay) {
        failToUnderstand(told_, "whose", context_);
    }
    Specifier::Filter filter;
    filter.operation = left ? row->filter : row->turned;
    filter.property = left ? *left : *right;
    filter.value = evaluate(left ? *node.right : *node.left);
    return row->isNegated ? joinedBy(Operation::negation, {std::move(filter)}) : filter;
}

Specifier::Filter ScriptRun::filterOf(const Node& node) {
    if (node.kind == NodeKind::binary) {
        const auto& binary = static_cast<const Binary&>(node);
        const bool isAnd = binary.operation == BinaryOperator::logicalAnd;
        if (isAnd || binary.operation == BinaryOperator::logicalOr) {
            std::vector<Specifier::Filter> operands;
            operands.push_back(filterOf(*binary.left));
            operands.push_back(filterOf(*binary.right));
            return joinedBy(isAnd ? Operation::conjunction : Operation::disjunction,
                            std::move(operands));
        }
        return comparisonOf(binary);
    }
    if (node.kind == NodeKind::unary &&
        static_cast<const Unary&>(node).operation == UnaryOperator::logicalNot) {
        return joinedBy(Operation::negation, {filterOf(*static_cast<const Unary&>(node).operand)});
    }
    const auto path = pathOf(node);
    if (!path || path->empty()) {
        failToUnderstand(told_, "whose", context_);
    }
    Specifier::Filter filter;
    filter.property = *path;
    return filter;
}

} // namespace qv::applescript
