#include "platform/applescript/running/Failure.h"

#include "platform/applescript/running/Interpreter.h"

#include <fmt/core.h>

namespace qv::applescript {

namespace {

constexpr std::size_t kMostOfAValue = 1024; // bytes in an error's text

std::string shown(const ScriptValue& value, const Context& context) {
    return sourceText(value, context.world, kMostOfAValue);
}

} // namespace

void fail(std::int64_t number, std::string text) {
    ScriptError error;
    error.number = number;
    error.brief = std::move(text);
    throwError(std::move(error));
}

void failToMake(const ScriptValue& value, Term type, const Context& context) {
    ScriptError error;
    error.number = error_number::kCannotConvert;
    error.brief = fmt::format("Can’t make {} into type {}.", shown(value, context), wordsOf(type));
    error.offender = value;
    error.expected = ScriptValue::type(type);
    throwError(std::move(error));
}

void failToGet(const ScriptValue& container, Specifier::Step step, const Context& context) {
    ScriptError error;
    error.number = error_number::kCannotGet;
    error.offender = partAsObject(container, std::move(step));
    error.brief = fmt::format("Can’t get {}.", shown(error.offender, context));
    throwError(std::move(error));
}

void failToSet(const ScriptValue& container, Specifier::Step step, const ScriptValue& value,
               const Context& context) {
    ScriptError error;
    error.number = error_number::kCannotSet;
    error.offender = partAsObject(container, std::move(step));
    error.brief =
        fmt::format("Can’t set {} to {}.", shown(error.offender, context), shown(value, context));
    throwError(std::move(error));
}

void failToUnderstand(const ScriptValue& receiver, std::string_view message,
                      const Context& context) {
    ScriptError error;
    error.number = error_number::kNotUnderstood;
    error.brief =
        fmt::format("{} doesn’t understand the “{}” message.", shown(receiver, context), message);
    error.offender = receiver;
    throwError(std::move(error));
}

void failTooDeep() { fail(error_number::kStackOverflow, "Stack overflow."); }

// The value itself is the first step of an object without an application.
ScriptValue partAsObject(const ScriptValue& container, Specifier::Step step) {
    Specifier specifier;
    if (container.is(ScriptValue::Kind::specifier)) {
        specifier = container.asSpecifier();
    } else {
        specifier.steps.push_back({.form = Specifier::Form::property, .key = container});
    }
    specifier.steps.push_back(std::move(step));
    return ScriptValue::specifier(std::move(specifier));
}

const ScriptValue* rootOf(const Specifier& specifier) noexcept {
    const bool isPart = specifier.application.empty() && !specifier.steps.empty() &&
                        specifier.steps.front().form == Specifier::Form::property;
    return isPart ? &specifier.steps.front().key : nullptr;
}

Specifier::Step namedStep(std::string_view name) {
    return {.form = Specifier::Form::property, .key = ScriptValue::text(std::string(name))};
}

} // namespace qv::applescript
