#include "platform/applescript/running/Failure.h"
#include "platform/applescript/running/Properties.h"
#include "platform/applescript/running/ScriptRun.h"

namespace qv::applescript {

namespace {
using Kind = ScriptValue::Kind;
} // namespace

// Objects of values: the first step holds the value, or of a variable of the script its slot.
ScriptValue ScriptRun::resolved(const ScriptValue& value) {
    if (!value.is(Kind::specifier) || rootOf(value.asSpecifier()) == nullptr) {
        return value;
    }
    const Restored depth(depth_);
    ++depth_;
    requireStack();
    const std::vector<Step>& steps = value.asSpecifier().steps;
    const bool isVariable = steps.front().term == Term::script;
    ScriptValue now = isVariable ? globals_[static_cast<std::size_t>(steps.front().key.asInteger())]
                                 : steps.front().key;
    for (std::size_t i = 1; i < steps.size(); ++i) {
        now = part(now, steps[i], true);
    }
    if (now.is(Kind::specifier) && !now.sameAs(value) && rootOf(now.asSpecifier()) != nullptr) {
        return resolved(now);
    }
    return now;
}

ScriptValue ScriptRun::asked(const ScriptValue& object, std::optional<Term> type) {
    Command command;
    command.name = Term::get;
    command.direct = object;
    command.hasDirect = true;
    if (type) {
        command.parameters.emplace_back(Term::as, ScriptValue::type(*type));
    }
    Specifier application;
    application.application = object.asSpecifier().application;
    application.byIdentifier = object.asSpecifier().byIdentifier;
    return sentTo(application, std::move(command));
}

ScriptValue ScriptRun::containerOf(const Node* container) {
    return container != nullptr ? resolved(object(*container)) : it_;
}

// The script knows the path of a file; the application that is told, or the system, knows the rest.
ScriptValue ScriptRun::fileAsObject(const ScriptValue& file) {
    Specifier specifier;
    if (isOfApplication(told_)) {
        specifier.application = told_.asSpecifier().application;
        specifier.byIdentifier = told_.asSpecifier().byIdentifier;
    }
    specifier.steps.push_back({.form = Form::name, .term = Term::item, .key = file});
    return ScriptValue::specifier(std::move(specifier));
}

ScriptValue ScriptRun::part(const ScriptValue& container, const Step& step, bool asks) {
    const bool isOfFile = container.is(Kind::file) && step.term != Term::class_ &&
                          step.term != Term::posixPath && step.term != Term::contents;
    if (isOfFile) {
        return part(fileAsObject(container), step, asks);
    }
    if (isOfApplication(container)) {
        if (step.term == Term::contents && step.form == Form::property) {
            return asked(container);
        }
        if (step.term == Term::class_ && container.asSpecifier().steps.empty()) {
            return ScriptValue::type(Term::application);
        }
        ScriptValue object = extended(container, step);
        return asks ? asked(object) : object;
    }
    if (container.is(Kind::script) && step.form == Form::property) {
        return scriptProperty(step);
    }
    return parts_.get(container, step);
}

ScriptValue* ScriptRun::scriptVariable(std::string_view name) {
    const auto isSame = [name](std::string_view other) {
        return std::ranges::equal(name, other, [](char lower, char c) {
            return lower == (c >= 'A' && c <= 'Z' ? static_cast<char>(c | 0x20) : c);
        });
    };
    const auto place = std::ranges::find_if(tree_.globals, isSame);
    return place != tree_.globals.end()
               ? &globals_[static_cast<std::size_t>(place - tree_.globals.begin())]
               : nullptr;
}

ScriptValue ScriptRun::scriptProperty(const Step& step) {
    const std::string_view name =
        step.term != Term::none ? wordsOf(step.term) : std::string_view(step.key.asText());
    const ScriptValue* variable = scriptVariable(name);
    return variable != nullptr && !variable->isUndefined() ? resolved(*variable)
                                                           : parts_.get(script_, step);
}

ScriptValue ScriptRun::property(const PropertyOf& node, bool asks) {
    if (node.property == Term::textItemDelimiters) {
        return context_.delimiters;
    }
    if (ScriptValue* progress = progressOf(node.property)) {
        return *progress;
    }
    const Step step =
        node.property == Term::none ? namedStep(node.name) : Step{.term = node.property};
    return part(containerOf(node.container), step, asks);
}

// `item i of x`, the work of many loops.
ScriptValue ScriptRun::quickItem(const Element& node) {
    if (node.form != Form::index || node.type != Term::item || node.filter != nullptr ||
        node.container == nullptr) {
        return ScriptValue::undefined();
    }
    const ScriptValue* list = inPlace(*node.container);
    const ScriptValue* key = inPlace(*node.key);
    if (list == nullptr || key == nullptr || !list->is(Kind::list) || !key->is(Kind::integer)) {
        return ScriptValue::undefined();
    }
    const auto place = placeAt(key->asInteger(), list->asList().size());
    return place ? list->asList()[*place] : ScriptValue::undefined();
}

ScriptValue ScriptRun::element(const Element& node, bool asks) {
    ScriptValue quick = quickItem(node);
    if (!quick.isUndefined()) {
        return quick;
    }
    if (node.form == Form::id && node.container == nullptr &&
        (sameClass(node.type, Term::text) || node.type == Term::character)) {
        return textFromCodePoints(evaluate(*node.key), context_);
    }
    ScriptValue container = containerOf(node.container);
    if (node.filter != nullptr && container.is(Kind::file)) {
        container = fileAsObject(container);
    }
    const bool choosesOne = node.form == Form::index || node.form == Form::some ||
                            node.form == Form::middle || node.form == Form::name;
    if (node.filter == nullptr) {
        return part(container, stepOf(node), asks);
    }
    if (isOfApplication(container)) {
        Step step{.form = Form::filter, .term = node.type};
        step.filter.push_back(filterOf(*node.filter));
        const ScriptValue all = extended(container, std::move(step));
        Step choice = stepOf(node);
        choice.term = Term::item;
        const ScriptValue object = choosesOne ? extended(all, std::move(choice)) : all;
        return asks ? asked(object) : object;
    }
    ScriptValue all = filtered(node, container, node.type);
    if (!choosesOne && node.form != Form::range) {
        return all;
    }
    Step step = stepOf(node);
    step.term = Term::item;
    return parts_.get(all, step);
}

ScriptValue ScriptRun::filtered(const Element& node, const ScriptValue& container, Term type) {
    const ScriptValue all = parts_.get(container, {.form = Form::every, .term = type});
    const HeldBytes held(all.asList().size() * sizeof(ScriptValue));
    std::vector<ScriptValue> chosen;
    const Restored it(it_);
    for (const ScriptValue& each : all.asList()) {
        step();
        it_ = each;
        if (condition(*node.filter)) {
            chosen.push_back(each);
        }
    }
    return ScriptValue::list(std::move(chosen));
}

Specifier::Step ScriptRun::stepOf(const Element& node) {
    Step step{.form = node.form, .term = node.type};
    if (node.form == Form::filter) {
        step.form = Form::every;
    }
    if (node.form == Form::every && node.type == Term::container) {
        step.form = Form::property; // an object has one
    }
    if (node.key != nullptr) {
        step.key = keyOf(*node.key);
    }
    if (node.last != nullptr) {
        step.last = keyOf(*node.last);
    }
    if (step.form == Form::index && step.key.is(Kind::text)) {
        step.form = Form::name;
    }
    return step;
}

// A bound of a range that is an element of what the range is of: `from word 2 to word 4`.
ScriptValue ScriptRun::keyOf(const Node& node) {
    if (node.kind != NodeKind::element || static_cast<const Element&>(node).container != nullptr) {
        return evaluate(node);
    }
    Specifier place;
    place.steps.push_back(stepOf(static_cast<const Element&>(node)));
    return ScriptValue::specifier(std::move(place));
}

// The place of a variable of the script, so that it can be set; the value of anything else.
ScriptValue ScriptRun::referenceTo(const ReferenceTo& node) {
    const auto variableObject = [&](const Node& target) -> ScriptValue {
        const bool isVariable = target.kind == NodeKind::variable &&
                                static_cast<const Variable&>(target).scope == Scope::script;
        if (!isVariable) {
            return object(target);
        }
        Specifier specifier;
        const std::uint32_t slot = static_cast<const Variable&>(target).slot;
        specifier.steps.push_back({.term = Term::script, .key = ScriptValue::integer(slot)});
        return ScriptValue::specifier(std::move(specifier));
    };
    const Node& target = *node.object;
    if (target.kind == NodeKind::element) {
        const auto& element = static_cast<const Element&>(target);
        if (element.filter == nullptr && element.container != nullptr) {
            return partAsObject(variableObject(*element.container), stepOf(element));
        }
    }
    if (target.kind == NodeKind::propertyOf) {
        const auto& property = static_cast<const PropertyOf&>(target);
        if (property.container != nullptr && property.container->kind != NodeKind::me) {
            const Step step = property.property == Term::none ? namedStep(property.name)
                                                              : Step{.term = property.property};
            return partAsObject(variableObject(*property.container), step);
        }
    }
    return variableObject(target);
}

} // namespace qv::applescript
