#include "platform/applescript/language/CommandForms.h"
#include "platform/applescript/language/Printer.h"

#include <fmt/core.h>

#include <algorithm>

namespace qv::applescript {

namespace {

using Form = Specifier::Form;

template <typename T> const T& node_cast(const Node* node) noexcept {
    return *static_cast<const T*>(node);
}

// The classes that make a file, a date or an application of what stands behind them in the
// singular.
bool makesObject(const Element& element) noexcept {
    switch (element.type) {
    case Term::application:
    case Term::date:
    case Term::alias:
    case Term::posixFile:
        return true;
    case Term::file:
        return element.container == nullptr && element.form != Form::id;
    default:
        return false;
    }
}

bool startsWithWords(std::string_view text, std::string_view words) {
    return text.starts_with(words) && (text.size() == words.size() || text[words.size()] == ' ');
}

} // namespace

// `A of B of C whose D`: the condition filters the first part that may be several objects.
std::string Printer::chain(const Node* head) {
    std::string text;
    const Node* filter = nullptr;
    bool isFound = false;
    for (const Node* node = head; node != nullptr; node = containerOf(node)) {
        if (node != head) {
            text += " of ";
        }
        if (!isLink(node)) {
            text += operand(node, Level::reference);
            break;
        }
        if (isFound && filterOf(node) != nullptr) {
            text += "(" + chain(node) + ")";
            break;
        }
        if (!isFound && isFiltered(node)) {
            isFound = true;
            filter = filterOf(node);
        }
        text += link(node);
    }
    return filter == nullptr ? text : text + " whose " + operand(filter, Level::disjunction);
}

// A part of a chain without its container.
std::string Printer::link(const Node* node) {
    switch (node->kind) {
    case NodeKind::propertyOf: {
        const auto& property = node_cast<PropertyOf>(node);
        const std::string words = property.property == Term::none
                                      ? name(property.name)
                                      : std::string(wordsOf(property.property));
        return isDelimiters(node) ? "AppleScript's " + words : words;
    }
    case NodeKind::element:
        return element(static_cast<const Element*>(node));
    case NodeKind::list:
        return list(static_cast<const ListNode*>(node)->items);
    default:
        return call(static_cast<const HandlerCall*>(node));
    }
}

std::string Printer::element(const Element* node) {
    const TermInfo& info = infoOf(node->type);
    const std::string singular(info.words);
    const std::string plural(info.plural.empty() ? info.words : info.plural);
    const std::string keyed = makesObject(*node) ? plural : singular;
    switch (node->form) {
    case Form::every: {
        const bool isText = node->type == Term::text && node->container != nullptr;
        return (isText ? "" : "every ") + singular;
    }
    case Form::some:
        return "some " + singular;
    case Form::middle:
        return "middle " + singular;
    case Form::id:
        return keyed + " id " + key(node->key);
    case Form::name: {
        const bool isText = asLiteral(node->key, ScriptValue::Kind::text) != nullptr;
        return keyed + (isText ? " " : " named ") + key(node->key);
    }
    case Form::range: {
        const bool isFrom =
            node->key->kind == NodeKind::element || node->last->kind == NodeKind::element;
        if (!isFrom) {
            return plural + " " + key(node->key) + " thru " + key(node->last);
        }
        const bool isNamed = !info.plural.empty() || node->type == Term::text;
        return (isNamed ? plural : "every " + singular) + " from " + boundary(node->key, true) +
               " to " + boundary(node->last, false);
    }
    default:
        break;
    }
    if (isOrdinal(*node)) {
        const std::int64_t index = node_cast<Literal>(node->key).value.asInteger();
        return (index < 0    ? std::string("last ")
                : index == 1 ? std::string("first ")
                             : std::to_string(index) + "th ") +
               singular;
    }
    return keyed + " " + key(node->key);
}

// Prints the expression behind `from` and `to` of a range.
std::string Printer::boundary(const Node* node, bool isFirst) {
    const bool isBare = node->kind == NodeKind::element && !endsOpen(node) &&
                        (isFirst || node_cast<Element>(node).container == nullptr);
    return isBare ? chain(node) : key(node);
}

// The key of an element: anything but the simplest in parentheses.
std::string Printer::key(const Node* node) {
    const auto isNumber = [](const Node* each) {
        return asLiteral(each, ScriptValue::Kind::integer) != nullptr ||
               asLiteral(each, ScriptValue::Kind::real) != nullptr;
    };
    if (isNumber(node) || asLiteral(node, ScriptValue::Kind::text) != nullptr) {
        return literal(node_cast<Literal>(node).value, true);
    }
    if (node->kind == NodeKind::unary && isNumber(node_cast<Unary>(node).operand) &&
        node_cast<Unary>(node).operation == UnaryOperator::negate) {
        return "-" + key(node_cast<Unary>(node).operand);
    }
    const bool isCall =
        node->kind == NodeKind::handlerCall && node_cast<HandlerCall>(node).receiver == nullptr;
    const bool isPlain =
        node->kind == NodeKind::variable || node->kind == NodeKind::result || isCall;
    return isPlain ? bare(node) : "(" + bare(node) + ")";
}

std::string Printer::call(const HandlerCall* node) {
    std::string text = (isMe(node->receiver) ? "my " : "") + handlerName(node->name) + "(";
    for (const Node* argument : node->arguments) {
        text += (argument == node->arguments.front() ? "" : ", ") +
                operand(argument, Level::disjunction);
    }
    return text + ")";
}

std::string Printer::labelledCall(const LabelledCall* node) {
    std::string text;
    if (node->receiver != nullptr) {
        text = isMe(node->receiver) ? "my " : operand(node->receiver, Level::reference) + "'s ";
    }
    text += handlerName(node->name);
    bool isGiven = false;
    for (const LabelledCall::Argument& each : node->arguments) {
        const bool isDirect =
            &each == &node->arguments.front() && (each.label == "of" || each.label == "in");
        if (isDirect || isPreposition(each.label)) {
            text += fmt::format(" {} ", each.label);
            isGiven = false;
        } else {
            text += (isGiven ? ", " : " given ") + name(each.label) + ":";
            isGiven = true;
        }
        text += argument(each.value);
    }
    return text;
}

std::string Printer::command(const CommandNode* node) {
    if (node->command == Term::isRunning) {
        return operand(node->direct, Level::comparison) + " is running";
    }
    const std::string words(wordsOf(node->command));
    const bool isSetting = node->command == Term::theClipboard && !node->parameters.empty() &&
                           node->parameters.front().label == Term::to;
    if (isSetting) {
        return "set the clipboard to " + bare(node->parameters.front().value);
    }
    std::string text = words;
    if (node->direct != nullptr) {
        text += " " + direct(node);
    }
    for (const CommandNode::Parameter& each : node->parameters) {
        text += " " + parameter(node, each);
    }
    return text;
}

std::string Printer::direct(const CommandNode* node) {
    const CommandForm& form = formOf(node->command);
    const bool isFolder = node->command == Term::pathTo &&
                          node->direct->kind == NodeKind::literal &&
                          node_cast<Literal>(node->direct).value.is(ScriptValue::Kind::constant);
    if (isFolder) {
        return bare(node->direct);
    }
    const bool isReference =
        form.direct == CommandForm::Direct::reference || node->command == Term::pathTo;
    const bool isOfClass = node->command == Term::exists;
    const std::string text = argument(node->direct, isOfClass            ? Level::coercion
                                                    : isReference        ? Level::reference
                                                    : form.has(Term::as) ? Level::concatenation
                                                                         : Level::disjunction);
    // A name that is a label, or a folder's.
    const bool isLabel = std::ranges::any_of(form.parameters, [&](const auto& each) {
        return startsWithWords(text, wordsOf(each.label));
    });
    const bool isName = node->command == Term::pathTo && node->direct->kind == NodeKind::variable;
    return isLabel || isName ? "(" + text + ")" : text;
}

std::string Printer::parameter(const CommandNode* node, const CommandNode::Parameter& parameter) {
    const CommandForm& form = formOf(node->command);
    const auto row =
        std::ranges::find(form.parameters, parameter.label, &CommandForm::Parameter::label);
    const std::string label(wordsOf(parameter.label));
    if (row->kind == CommandForm::Kind::type) {
        return label + " " + bare(parameter.value);
    }
    if (const Literal* flag = asLiteral(parameter.value, ScriptValue::Kind::boolean);
        flag != nullptr && row->kind == CommandForm::Kind::flag) {
        return (flag->value.asBoolean() ? "with " : "without ") + label;
    }
    const bool isTypeBehind = form.has(Term::as) && parameter.label != Term::as;
    const std::string text =
        argument(parameter.value, isTypeBehind ? Level::concatenation : Level::disjunction);
    const bool isPlace = startsWithWords(text, "end") || startsWithWords(text, "beginning");
    return label + " " + (isPlace ? "(" + text + ")" : text);
}

} // namespace qv::applescript
