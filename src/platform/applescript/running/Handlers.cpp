#include "platform/applescript/running/Failure.h"
#include "platform/applescript/running/ScriptRun.h"

#include <fmt/core.h>

#include <algorithm>

namespace qv::applescript {

// An application gets what is said inside of a `tell` to it, and knows no handler of a script.
const Handler& ScriptRun::handlerFor(std::string_view name, const Node* receiver) {
    const ScriptValue target = receiver != nullptr ? resolved(object(*receiver)) : told_;
    if (isOfApplication(target)) {
        ScriptError error;
        error.number = error_number::kNotUnderstood;
        error.application = target.asSpecifier().application;
        error.brief = fmt::format("Can’t continue {}.", name);
        throwError(std::move(error));
    }
    const bool isScript = receiver == nullptr || target.is(ScriptValue::Kind::script);
    const auto found = handlers_.find(name);
    if (isScript && name == "run") {
        return tree_.run;
    }
    if (!isScript || found == handlers_.end()) {
        failToUnderstand(isScript ? script_ : target, name, context_);
    }
    return *found->second;
}

ScriptValue ScriptRun::call(const Handler& handler, std::vector<ScriptValue> arguments) {
    requireStack();
    step();
    const HeldBytes held(handler.slots * sizeof(ScriptValue));
    std::vector<ScriptValue> frame(handler.slots, ScriptValue::undefined());
    const Restored depth(depth_);
    const Restored slots(slots_);
    const Restored it(it_);
    const Restored told(told_);
    ++depth_;
    slots_[static_cast<std::size_t>(Scope::handler)] = frame.data();
    it_ = script_;
    told_ = script_;
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        slotOf(*handler.parameters[i]) = std::move(arguments[i]);
    }
    result_ = ScriptValue::undefined();
    runBlock(*handler.body);
    return std::exchange(result_, ScriptValue::undefined());
}

ScriptValue ScriptRun::callPositional(const HandlerCall& node) {
    const Handler& handler = handlerFor(node.name, node.receiver);
    const HeldBytes held(node.arguments.size() * sizeof(ScriptValue));
    std::vector<ScriptValue> arguments;
    arguments.reserve(node.arguments.size());
    for (const Node* argument : node.arguments) {
        arguments.push_back(evaluate(*argument));
    }
    if (handler.takesList && arguments.size() == 1) {
        const ScriptValue list = coerced(arguments.front(), Term::list, context_);
        arguments = list.asList();
        arguments.resize(handler.parameters.size());
    }
    const std::size_t wanted = handler.parameters.size();
    if (arguments.size() == wanted && handler.labels.empty()) {
        return call(handler, std::move(arguments));
    }
    std::string names;
    for (const Variable* parameter : handler.parameters) {
        names.append(names.empty() ? "" : ", ").append(parameter->name);
    }
    const bool isMissing = arguments.size() < wanted;
    fail(isMissing ? error_number::kParameterMissing : error_number::kParameterMismatch,
         fmt::format("{} doesn’t match the parameters {{{}}} for {}.",
                     sourceText(ScriptValue::list(std::move(arguments)), context_.world), names,
                     node.name));
}

ScriptValue ScriptRun::callLabelled(const LabelledCall& node) {
    const Handler& handler = handlerFor(node.name, node.receiver);
    std::vector<std::pair<std::string_view, ScriptValue>> given;
    given.reserve(node.arguments.size());
    for (const LabelledCall::Argument& argument : node.arguments) {
        given.emplace_back(argument.label, evaluate(*argument.value));
    }
    const auto isDirect = [](std::string_view label) { return label == "of" || label == "in"; };
    std::vector<ScriptValue> arguments;
    for (const std::string_view label : handler.labels) {
        const auto found = std::ranges::find_if(given, [&](const auto& each) {
            return each.first == label || (isDirect(label) && isDirect(each.first));
        });
        if (found == given.end()) {
            fail(error_number::kParameterMissing,
                 fmt::format("The {} parameter is missing for {}.", label, node.name));
        }
        arguments.push_back(found->second);
    }
    if (handler.labels.size() != handler.parameters.size()) {
        fail(error_number::kParameterMissing,
             fmt::format("Parameters are missing for {}.", node.name));
    }
    return call(handler, std::move(arguments));
}

} // namespace qv::applescript
