#include "platform/applescript/language/Binding.h"

namespace qv::applescript {

namespace {

using Form = Specifier::Form;

template <typename T> const T& seenAs(const Node* node) noexcept {
    return *static_cast<const T*>(node);
}

} // namespace

const Literal* asLiteral(const Node* node, ScriptValue::Kind kind) noexcept {
    const bool isLiteral =
        node != nullptr && node->kind == NodeKind::literal && seenAs<Literal>(node).value.is(kind);
    return isLiteral ? &seenAs<Literal>(node) : nullptr;
}

// `first item` rather than `item 1`.
bool isOrdinal(const Element& element) noexcept {
    const Literal* key = asLiteral(element.key, ScriptValue::Kind::integer);
    return element.form == Form::index && key != nullptr &&
           (element.filter != nullptr || key->value.asInteger() < 0);
}

// Whether `whose` behind the reference would be about this part of it.
bool isFiltered(const Node* node) noexcept {
    if (node->kind != NodeKind::element) {
        return false;
    }
    const auto& element = seenAs<Element>(node);
    return element.form == Form::every || element.form == Form::some ||
           element.form == Form::middle || element.form == Form::range || isOrdinal(element);
}

const Node* filterOf(const Node* node) noexcept {
    return node->kind == NodeKind::element ? seenAs<Element>(node).filter : nullptr;
}

bool isMe(const Node* node) noexcept { return node != nullptr && node->kind == NodeKind::me; }

bool isDelimiters(const Node* node) noexcept {
    return node->kind == NodeKind::propertyOf &&
           seenAs<PropertyOf>(node).property == Term::textItemDelimiters &&
           isMe(seenAs<PropertyOf>(node).container);
}

// The container behind `of`, or null.
const Node* containerOf(const Node* node) noexcept {
    switch (node->kind) {
    case NodeKind::propertyOf:
        return isDelimiters(node) ? nullptr : seenAs<PropertyOf>(node).container;
    case NodeKind::element:
        return seenAs<Element>(node).container;
    case NodeKind::list:
        return seenAs<ListNode>(node).container;
    case NodeKind::handlerCall: {
        const Node* receiver = seenAs<HandlerCall>(node).receiver;
        return isMe(receiver) ? nullptr : receiver;
    }
    default:
        return nullptr;
    }
}

bool isLink(const Node* node) noexcept {
    return node->kind == NodeKind::propertyOf || node->kind == NodeKind::element ||
           node->kind == NodeKind::handlerCall ||
           (node->kind == NodeKind::list && seenAs<ListNode>(node).container != nullptr);
}

bool endsOpen(const Node* node) noexcept {
    for (; node != nullptr && isLink(node); node = containerOf(node)) {
        if (isFiltered(node)) {
            return filterOf(node) != nullptr;
        }
    }
    return false;
}

bool isDateOfText(const Coercion& node) noexcept {
    return node.types.size() == 1 && node.types.front() == Term::date &&
           node.value->kind == NodeKind::literal &&
           seenAs<Literal>(node.value).value.is(ScriptValue::Kind::text);
}

// Commands, and references with a condition, take all that follows: they bind least.
bool takesAll(const Node* node) noexcept {
    return (node->kind == NodeKind::command &&
            seenAs<CommandNode>(node).command != Term::isRunning) ||
           node->kind == NodeKind::labelledCall || endsOpen(node);
}

Level bindingOf(const Node* node) noexcept {
    switch (node->kind) {
    case NodeKind::unary:
        return seenAs<Unary>(node).operation == UnaryOperator::logicalNot ? Level::negation
                                                                          : Level::sign;
    case NodeKind::binary:
        return levelOf(seenAs<Binary>(node).operation);
    case NodeKind::coercion:
        return isDateOfText(seenAs<Coercion>(node)) ? Level::reference : Level::coercion;
    case NodeKind::command:
        return Level::comparison; // `is running`
    default:
        return Level::reference;
    }
}

} // namespace qv::applescript
