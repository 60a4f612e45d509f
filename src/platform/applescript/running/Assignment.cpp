#include "platform/applescript/running/Failure.h"
#include "platform/applescript/running/ScriptRun.h"

#include <algorithm>

namespace qv::applescript {

namespace {
using Kind = ScriptValue::Kind;
} // namespace

void ScriptRun::assign(const Node& target, const ScriptValue& value) {
    switch (target.kind) {
    case NodeKind::variable:
        slotOf(static_cast<const Variable&>(target)) = ScriptValue(value);
        return;
    case NodeKind::list:
        return assignList(static_cast<const ListNode&>(target), value);
    case NodeKind::record:
        return assignRecord(static_cast<const RecordNode&>(target), value);
    case NodeKind::propertyOf:
        return assignProperty(static_cast<const PropertyOf&>(target), value);
    case NodeKind::element: {
        const auto& element = static_cast<const Element&>(target);
        const ScriptValue container = containerOf(element.container);
        if (element.filter == nullptr) {
            return assignPart(container, stepOf(element), value);
        }
        Step filter{.form = Form::filter, .term = element.type};
        if (isOfApplication(container)) {
            filter.filter.push_back(filterOf(*element.filter));
            const ScriptValue objects = extended(container, std::move(filter));
            return context_.world.set(objects.asSpecifier(), value);
        }
        failToSet(container, filter, value, context_);
    }
    default:
        fail(error_number::kCannotSet, "Can’t set " + sourceText(evaluate(target), context_.world) +
                                           " to " + sourceText(value, context_.world) + ".");
    }
}

void ScriptRun::assignList(const ListNode& target, const ScriptValue& value) {
    const ScriptValue list = coerced(value, Term::list, context_);
    const Restored it(it_);
    if (target.container != nullptr) {
        it_ = containerOf(target.container);
    }
    const HeldBytes held(list.asList().size() * sizeof(ScriptValue));
    // A copy, since an assignment may change the list.
    const std::vector<ScriptValue> items = list.asList();
    for (std::size_t i = 0; i < target.items.size(); ++i) {
        if (i >= items.size()) {
            failToGet(list,
                      {.form = Form::index,
                       .term = Term::item,
                       .key = wholeNumber(static_cast<std::int64_t>(i + 1))},
                      context_);
        }
        assign(*target.items[i], items[i]);
    }
}

// The fields of a date, a file and an object of an application are properties.
void ScriptRun::assignRecord(const RecordNode& target, const ScriptValue& value) {
    if (value.is(Kind::date) || value.is(Kind::file) || value.is(Kind::specifier)) {
        for (const RecordNode::Field& field : target.fields) {
            const auto isField = [&](const TermInfo& info) {
                return info.kind == TermKind::property && info.words == field.key;
            };
            const auto term = std::ranges::find_if(terms(), isField);
            const Step step =
                term != terms().end() ? Step{.term = term->term} : namedStep(field.key);
            assign(*field.value, part(value, step, true));
        }
        return;
    }
    const ScriptValue record = coerced(value, Term::record, context_);
    for (const RecordNode::Field& field : target.fields) {
        const ScriptValue* own = fieldOf(record, field.key);
        if (own == nullptr) {
            failToGet(record, namedStep(field.key), context_);
        }
        assign(*field.value, ScriptValue(*own));
    }
}

void ScriptRun::assignProperty(const PropertyOf& target, const ScriptValue& value) {
    if (target.property == Term::textItemDelimiters) {
        return setDelimiters(value);
    }
    if (ScriptValue* progress = progressOf(target.property)) {
        *progress = value;
        return;
    }
    if (target.property == Term::contents && target.container != nullptr) {
        return assignContents(*target.container, value);
    }
    const Step step =
        target.property == Term::none ? namedStep(target.name) : Step{.term = target.property};
    assignPart(containerOf(target.container), step, value);
}

void ScriptRun::assignPart(const ScriptValue& container, const Step& step,
                           const ScriptValue& value) {
    if (isOfApplication(container) || container.is(Kind::file)) {
        const ScriptValue object =
            extended(container.is(Kind::file) ? fileAsObject(container) : container, step);
        return context_.world.set(object.asSpecifier(), value);
    }
    if (container.is(Kind::script) && step.form == Form::property) {
        const std::string_view name =
            step.term != Term::none ? wordsOf(step.term) : std::string_view(step.key.asText());
        if (ScriptValue* variable = scriptVariable(name)) {
            *variable = ScriptValue(value);
            return;
        }
    }
    parts_.set(container, step, value);
}

void ScriptRun::assignContents(const Node& reference, const ScriptValue& value) {
    if (const ScriptValue* variable = inPlace(reference)) {
        for (const Loop* loop = loop_; loop != nullptr; loop = loop->outer) {
            std::vector<ScriptValue>& items = loop->list.asList();
            if (loop->variable == variable && loop->place < items.size()) {
                items[loop->place] = value;
                return assign(reference, value);
            }
        }
    }
    const ScriptValue target = object(reference);
    const ScriptValue* root = target.is(Kind::specifier) ? rootOf(target.asSpecifier()) : nullptr;
    if (isOfApplication(target)) {
        return context_.world.set(target.asSpecifier(), value);
    }
    if (root == nullptr) {
        return assign(reference, value);
    }
    Specifier container = target.asSpecifier();
    if (container.steps.size() == 1 && container.steps.front().term == Term::script) {
        globals_[static_cast<std::size_t>(root->asInteger())] = ScriptValue(value);
        return;
    }
    const Step last = container.steps.back();
    container.steps.pop_back();
    assignPart(resolved(ScriptValue::specifier(std::move(container))), last, value);
}

void ScriptRun::setDelimiters(const ScriptValue& value) {
    const ScriptValue list = coerced(value, Term::list, context_);
    ScriptValue::expectBytes(2 * list.asList().size() * sizeof(ScriptValue));
    std::vector<ScriptValue> texts;
    for (const ScriptValue& each : list.asList()) {
        texts.push_back(coerced(each, Term::text, context_));
    }
    if (texts.empty()) {
        texts.push_back(ScriptValue::text(""));
    }
    context_.delimiters = deepCopy(value, context_);
    context_.delimiterTexts = std::move(texts);
    parts_.texts().forget();
}

} // namespace qv::applescript
