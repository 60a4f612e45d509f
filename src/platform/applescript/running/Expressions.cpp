#include "platform/applescript/running/Calculation.h"
#include "platform/applescript/running/Comparison.h"
#include "platform/applescript/running/Failure.h"
#include "platform/applescript/running/Number.h"
#include "platform/applescript/running/ScriptRun.h"

namespace qv::applescript {

namespace {

using Kind = ScriptValue::Kind;

bool isComparison(BinaryOperator operation) noexcept {
    return operation >= BinaryOperator::equal && operation <= BinaryOperator::greaterOrEqual;
}

template <typename T> bool isOrdered(BinaryOperator operation, T left, T right) noexcept {
    switch (operation) {
    case BinaryOperator::equal:
        return left == right;
    case BinaryOperator::notEqual:
        return left != right;
    case BinaryOperator::less:
        return left < right;
    case BinaryOperator::lessOrEqual:
        return left <= right;
    case BinaryOperator::greater:
        return left > right;
    default:
        return left >= right;
    }
}

/// Sums and comparisons of numbers, which is most of what loops do.
std::optional<ScriptValue> quickResult(BinaryOperator operation, const ScriptValue& left,
                                       const ScriptValue& right) noexcept {
    if (isComparison(operation) && left.isNumber() && right.isNumber()) {
        return ScriptValue::boolean(isOrdered(operation, realOf(left), realOf(right)));
    }
    const Number number = quickNumber(operation, left, right);
    switch (number.kind) {
    case Number::Kind::integer:
        return ScriptValue::integer(number.integer);
    case Number::Kind::real:
        return ScriptValue::real(number.real);
    default:
        return std::nullopt;
    }
}

} // namespace

ScriptValue ScriptRun::evaluate(const Node& node) {
    switch (node.kind) {
    case NodeKind::literal:
        return static_cast<const Literal&>(node).value;
    case NodeKind::variable:
        return readVariable(static_cast<const Variable&>(node));
    case NodeKind::binary:
        return evaluateBinary(static_cast<const Binary&>(node));
    default:
        return evaluateOther(node);
    }
}

ScriptValue ScriptRun::evaluateOther(const Node& node) {
    try {
        return dispatchExpression(node);
    } catch (ScriptError& error) {
        if (!error.range) {
            error.range = node.range();
        }
        throw;
    }
}

ScriptValue ScriptRun::dispatchExpression(const Node& node) {
    switch (node.kind) {
    case NodeKind::list:
        return evaluateList(static_cast<const ListNode&>(node));
    case NodeKind::record:
        return evaluateRecord(static_cast<const RecordNode&>(node));
    case NodeKind::it: {
        const bool isObject = isOfApplication(it_) && !it_.asSpecifier().steps.empty();
        return isObject ? asked(it_) : it_;
    }
    case NodeKind::me:
        return script_;
    case NodeKind::result:
        if (result_.isUndefined()) {
            fail(error_number::kNotDefined, "The variable result is not defined.");
        }
        return resolved(result_);
    case NodeKind::unary:
        return evaluateUnary(static_cast<const Unary&>(node));
    case NodeKind::coercion:
        return evaluateCoercion(static_cast<const Coercion&>(node));
    case NodeKind::propertyOf:
        return property(static_cast<const PropertyOf&>(node), true);
    case NodeKind::element:
        return element(static_cast<const Element&>(node), true);
    case NodeKind::fileObject: {
        const auto& file = static_cast<const FileObject&>(node);
        return coerced(evaluate(*file.path), file.form, context_);
    }
    case NodeKind::applicationObject:
        return evaluateApplication(static_cast<const ApplicationObject&>(node));
    case NodeKind::handlerCall:
        return callPositional(static_cast<const HandlerCall&>(node));
    case NodeKind::labelledCall:
        return callLabelled(static_cast<const LabelledCall&>(node));
    case NodeKind::command:
        return command(static_cast<const CommandNode&>(node));
    case NodeKind::referenceTo:
        return referenceTo(static_cast<const ReferenceTo&>(node));
    case NodeKind::unknownPhrase: {
        const std::string_view words = static_cast<const UnknownPhrase&>(node).words;
        if (isOfApplication(told_)) {
            context_.world.refuse(told_.asSpecifier(), words);
        }
        failToUnderstand(told_, words, context_);
    }
    default:
        return evaluate(node);
    }
}

ScriptValue ScriptRun::object(const Node& node) {
    switch (node.kind) {
    case NodeKind::variable: {
        const ScriptValue& slot = slotOf(static_cast<const Variable&>(node));
        return slot.is(Kind::specifier) ? slot : evaluate(node);
    }
    case NodeKind::it:
        return it_;
    case NodeKind::propertyOf:
    case NodeKind::element:
        try {
            return node.kind == NodeKind::element
                       ? element(static_cast<const Element&>(node), false)
                       : property(static_cast<const PropertyOf&>(node), false);
        } catch (ScriptError& error) {
            if (!error.range) {
                error.range = node.range();
            }
            throw;
        }
    default:
        return evaluate(node);
    }
}

ScriptValue ScriptRun::readVariable(const Variable& variable) {
    const ScriptValue& slot = slotOf(variable);
    if (slot.is(Kind::specifier)) {
        try {
            return resolved(slot);
        } catch (const ScriptError& error) {
            if (error.number != error_number::kCannotGet) {
                throw;
            }
            return slot; // such as the object that an error was about
        }
    }
    if (slot.isUndefined()) {
        ScriptError error;
        error.number = error_number::kNotDefined;
        error.brief = "The variable " + std::string(variable.name) + " is not defined.";
        error.range = variable.range();
        throwError(std::move(error));
    }
    return slot;
}

ScriptValue ScriptRun::evaluateBinary(const Binary& node) {
    const ScriptValue* left = inPlace(*node.left);
    const ScriptValue* right = inPlace(*node.right);
    if (left != nullptr && right != nullptr) {
        if (auto quick = quickResult(node.operation, *left, *right)) {
            return std::move(*quick);
        }
    }
    if (node.operation == BinaryOperator::logicalAnd ||
        node.operation == BinaryOperator::logicalOr) {
        return evaluateLogical(node);
    }
    const ScriptValue leftValue = evaluate(*node.left);
    const ScriptValue rightValue = evaluate(*node.right);
    if (auto quick = quickResult(node.operation, leftValue, rightValue)) {
        return std::move(*quick);
    }
    try {
        return evaluateOperands(node, leftValue, rightValue);
    } catch (ScriptError& error) {
        if (!error.range) {
            const bool isOfOperand = error.number == error_number::kCannotConvert;
            const Node& culprit = !isOfOperand                        ? node
                                  : error.offender.sameAs(rightValue) ? *node.right
                                                                      : *node.left;
            error.range = culprit.range();
        }
        throw;
    }
}

ScriptValue ScriptRun::evaluateOperands(const Binary& node, const ScriptValue& left,
                                        const ScriptValue& right) {
    const auto truth = [](bool value) { return ScriptValue::boolean(value); };
    switch (node.operation) {
    case BinaryOperator::concatenate:
        return concatenated(left, right, context_);
    case BinaryOperator::equal:
        return truth(areEqual(left, right, context_));
    case BinaryOperator::notEqual:
        return truth(!areEqual(left, right, context_));
    case BinaryOperator::less:
    case BinaryOperator::lessOrEqual:
    case BinaryOperator::greater:
    case BinaryOperator::greaterOrEqual:
        return truth(isOrdered(node.operation, orderOf(left, right, context_), 0));
    case BinaryOperator::startsWith:
        return truth(holds(left, right, Place::begin, context_));
    case BinaryOperator::endsWith:
        return truth(holds(left, right, Place::end, context_));
    case BinaryOperator::contains:
        return truth(holds(left, right, Place::anywhere, context_));
    case BinaryOperator::doesNotContain:
        return truth(!holds(left, right, Place::anywhere, context_));
    case BinaryOperator::isIn:
        return truth(holds(right, left, Place::anywhere, context_));
    case BinaryOperator::isNotIn:
        return truth(!holds(right, left, Place::anywhere, context_));
    default:
        return calculated(node.operation, left, right, context_);
    }
}

ScriptValue ScriptRun::evaluateLogical(const Binary& node) {
    const bool isAnd = node.operation == BinaryOperator::logicalAnd;
    const bool left = condition(*node.left);
    return ScriptValue::boolean(left == isAnd ? condition(*node.right) : left);
}

bool ScriptRun::condition(const Node& node) {
    if (node.kind == NodeKind::binary) {
        const auto& binary = static_cast<const Binary&>(node);
        const ScriptValue* left = inPlace(*binary.left);
        const ScriptValue* right = inPlace(*binary.right);
        if (left != nullptr && right != nullptr && left->is(Kind::integer) &&
            right->is(Kind::integer) && isComparison(binary.operation)) {
            return isOrdered(binary.operation, left->asInteger(), right->asInteger());
        }
    }
    const ScriptValue value = evaluate(node);
    if (value.is(Kind::boolean)) {
        return value.asBoolean();
    }
    try {
        return booleanOf(value, context_);
    } catch (ScriptError& error) {
        error.range = node.range();
        throw;
    }
}

std::int64_t ScriptRun::integer(const Node& node) {
    const ScriptValue value = evaluate(node);
    try {
        return integerOf(value, context_);
    } catch (ScriptError& error) {
        error.range = node.range();
        throw;
    }
}

ScriptValue ScriptRun::evaluateUnary(const Unary& node) {
    switch (node.operation) {
    case UnaryOperator::logicalNot:
        return ScriptValue::boolean(!condition(*node.operand));
    case UnaryOperator::negate:
        return negated(evaluate(*node.operand), context_);
    default:
        return numberOf(evaluate(*node.operand), context_);
    }
}

ScriptValue ScriptRun::evaluateList(const ListNode& node) {
    const HeldBytes held(node.items.size() * sizeof(ScriptValue));
    std::vector<ScriptValue> items;
    items.reserve(node.items.size());
    const Restored it(it_);
    if (node.container != nullptr) {
        it_ = containerOf(node.container);
    }
    for (const Node* item : node.items) {
        items.push_back(evaluate(*item));
    }
    return ScriptValue::list(std::move(items));
}

ScriptValue ScriptRun::evaluateRecord(const RecordNode& node) {
    const HeldBytes held(node.fields.size() * sizeof(ScriptValue::Fields::value_type));
    ScriptValue::Fields fields;
    fields.reserve(node.fields.size());
    for (const RecordNode::Field& field : node.fields) {
        fields.emplace_back(field.key, evaluate(*field.value));
    }
    return ScriptValue::record(std::move(fields));
}

ScriptValue ScriptRun::evaluateCoercion(const Coercion& node) {
    ScriptValue value = resolved(object(*node.value));
    if (isOfApplication(value) && !value.asSpecifier().steps.empty() &&
        node.types.front() != Term::reference) {
        value = asked(value, node.types.front());
    }
    try {
        for (const Term type : node.types) {
            if (auto result = tryCoerced(value, type, context_)) {
                return std::move(*result);
            }
        }
        failToMake(value, node.types.front(), context_);
    } catch (ScriptError& error) {
        error.range = node.value->range();
        throw;
    }
}

ScriptValue ScriptRun::evaluateApplication(const ApplicationObject& node) {
    const ScriptValue name = evaluate(*node.name);
    Specifier specifier;
    specifier.application = name.is(Kind::file) ? name.asFilePath() : textOf(name, context_);
    specifier.byIdentifier = node.byIdentifier;
    if (specifier.application.empty()) {
        fail(error_number::kCannotGet, "Can’t get application \"\".");
    }
    return ScriptValue::specifier(std::move(specifier));
}

} // namespace qv::applescript
